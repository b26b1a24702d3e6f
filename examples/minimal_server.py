#!/usr/bin/env python3
"""A server for the sort process in a hundred lines, written from docs/protocol.md alone.

Starts one process, lays 20,000 records into its frames and, since they do not fit there, into its
work file, asks for them by falling key, and checks what comes back.

Usage: minimal_server.py [PROCESS]        PROCESS is tvsort in PATH by default
"""
import mmap
import os
import random
import socket
import struct
import subprocess
import sys
import tempfile

PAGE = 4096
MEMORY_PAGES, PAGES_PER_BLOCK, SLOT = 40, 8, 1

# The slot: message buffer, frames and one spare block, page descriptors, hash table.
memory_blocks = MEMORY_PAGES // PAGES_PER_BLOCK
frames_max = memory_blocks * PAGES_PER_BLOCK
slot_bytes = 8192 + (memory_blocks + 1) * PAGES_PER_BLOCK * PAGE + frames_max * (24 + 4)
slot_bytes = (slot_bytes + PAGE - 1) // PAGE * PAGE

# The data set: records of 12 bytes with an integer key at byte 8, in blocks of one page.
BLOCK_PAGES, RECORD_LENGTH, RECORD_COUNT = 1, 12, 20000
block_bytes = BLOCK_PAGES * PAGE
records_per_block = block_bytes // RECORD_LENGTH
file_blocks = -(-RECORD_COUNT // records_per_block)
frame_count = PAGES_PER_BLOCK // BLOCK_PAGES * memory_blocks


def message(body):
    return struct.pack("<I", 4 + len(body)) + body


def named(name):
    """An answer, or the word to stop: nothing but the four characters at byte 20."""
    return message(bytes(16) + name.ljust(4).encode())


def request():
    key = struct.pack("<BBHHBBBBH", 2, 0, 4, 8, 0, 0, 1, 0, 0)  # integer of 4 bytes, descending
    return message(bytes(16) + b"TVWK" + bytes(36)
                   + struct.pack("<iiiHHHHi", file_blocks, BLOCK_PAGES, RECORD_COUNT,
                                 records_per_block, RECORD_LENGTH, 1, 0, 0)
                   + key + struct.pack("<H", 0))


def receive(connection):
    reply = b""
    while len(reply) < 80:
        piece = connection.recv(80 - len(reply))
        if not piece:
            sys.exit("the process has ended")
        reply += piece
    length, process_id, error_code = struct.unpack_from("<Iii", reply)
    if (length, error_code) != (80, 0):
        sys.exit(f"code {error_code}, system error {struct.unpack_from('<i', reply, 44)[0]}")
    return process_id, reply


def main():
    program = sys.argv[1] if len(sys.argv) > 1 else "tvsort"
    random.seed(20561)
    keys = [random.randrange(-2**31, 2**31) for _ in range(RECORD_COUNT)]
    records = b"".join(struct.pack("<Qi", number, key) for number, key in enumerate(keys))
    with tempfile.TemporaryDirectory() as folder:
        shared = os.memfd_create("slots")
        os.ftruncate(shared, slot_bytes)
        slot = mmap.mmap(shared, slot_bytes)
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(f"{folder}/tavrin.internal.7")
        listener.listen()
        process = subprocess.Popen(
            [program, str(MEMORY_PAGES), str(SLOT), str(shared), folder + "/", str(PAGES_PER_BLOCK)],
            env={"TAVRIN_TMP": folder, "TAVRIN_MBX": "7", "TVWK": folder}, pass_fds=[shared])

        # Blocks into frames as long as there are any, and into the file behind them.
        with open(f"{folder}/1.5{SLOT}", "w+b") as work_file:
            connection, _ = listener.accept()
            assert receive(connection)[0] == process.pid
            connection.sendall(named("TVWK"))
            for block in range(file_blocks):
                first = block * records_per_block * RECORD_LENGTH
                content = records[first:first + records_per_block * RECORD_LENGTH]
                if block < frame_count:
                    place = 8192 + block * block_bytes
                    slot[place:place + len(content)] = content
                else:
                    work_file.seek(block * block_bytes)
                    work_file.write(content)
            work_file.flush()

            connection.sendall(request())
            _, reply = receive(connection)
            result_blocks, _, result_count, _, record_length = struct.unpack_from("<iiiiH", reply, 60)

            result = b""
            for block in range(result_blocks):
                if block < frame_count:
                    place = 8192 + block * block_bytes
                    content = slot[place:place + block_bytes]
                else:
                    work_file.seek(block * block_bytes)
                    content = work_file.read(block_bytes)
                result += content[:records_per_block * record_length]
            connection.sendall(named("SHUT"))
            status = process.wait()

    sorted_keys = [key for _, key in struct.iter_unpack("<Qi", result[:result_count * record_length])]
    if sorted_keys != sorted(keys, reverse=True) or status != 0:
        sys.exit("the result is not in order")
    print(f"{result_count} records in order, {result_blocks - frame_count} of {result_blocks} blocks "
          "in the work file")


if __name__ == "__main__":
    main()
