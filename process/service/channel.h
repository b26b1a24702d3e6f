// The channel to the server: the slot of the shared-memory object, mapped, and a connected local
// stream socket.
//
//      server                          sort process
//        |  <------ hello (80 bytes) ------  |   openChannel
//        |  -- answer: directory name ---->  |
//        |  ------------ request --------->  |   receiveMessage   (again and again)
//        |  <------ reply (80 bytes) -------  |   sendReply
//        |  ------------ "SHUT" ---------->  |   the process ends
//
// A message is received into private memory, where nobody can change it between two looks, and its
// first 8192 bytes are laid into the message buffer at the start of the slot. What a request longer
// than the buffer carries beyond it stays private, so that frame 0, which follows the buffer, stays
// as the server filled it. The reply starts as the first 80 bytes of the buffer, is made in private
// memory too, and is laid there when it is sent.
//
// Every failure of the channel ends the process with status 0, most after a line on standard
// output. The only code that these operations can leave in the job is the work file's 1401.
//
// `TAVRIN_TMP` names the socket's directory ("/tmp/tavrin" by default) and `TAVRIN_MBX` the server
// instance (20561 by default): the socket is "<directory>/tavrin.internal.<instance>".

#pragma once

#include <cstddef>
#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

// Maps the slot, connects, says hello and takes in the server's answer. Needs `slotNumber`,
// `shmFd`, `memoryBlocks` and `pagesPerBlock`; fills `processId`, `socketFd` and the pointers into
// the slot. Closes `shmFd` and leaves -1 in it. May leave 1401.
void openChannel(SortJob& job);

// Points the job at a mapped slot of its `memoryBlocks` and `pagesPerBlock`.
void attachSlot(SortJob& job, Byte* slot);

// Takes the next message, starts the reply from it and opens the work file that it names, unless
// one is open already. True when the work file is open afterwards, else 1401 stands in the job.
// "SHUT", the end of the stream and a message of impossible length end the process.
bool receiveMessage(SortJob& job);

// The whole length of the message received last, in bytes.
std::uint32_t messageBytes();

// Copies `byteCount` bytes of the last message from `offset` on; both lie inside the message.
void copyFromMessage(std::size_t offset, void* target, std::size_t byteCount);

// Sends the reply, with length, process id and error code set, and lays it into the message buffer.
void sendReply(SortJob& job);

// Closes the work file and ends the process with status 0.
[[noreturn]] void stopProcess(SortJob& job);

}  // namespace tvsort
