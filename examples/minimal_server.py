#!/usr/bin/env python3
"""A server for the sort process, written from docs/protocol.md alone.

Starts one process and asks it for one request in every mode, each with the data set in memory and
again spilled to the work file, and holds what comes back to the results written below. At the end
it sorts 20,000 records that do not fit into the memory granted.

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
from collections import namedtuple

PAGE = 4096
MEMORY_PAGES, PAGES_PER_BLOCK, SLOT = 40, 8, 1

# The slot: message buffer, frames and one spare block, page descriptors, hash table.
MEMORY_BLOCKS = MEMORY_PAGES // PAGES_PER_BLOCK
FRAMES_MAX = MEMORY_BLOCKS * PAGES_PER_BLOCK
SLOT_BYTES = 8192 + (MEMORY_BLOCKS + 1) * PAGES_PER_BLOCK * PAGE + FRAMES_MAX * (24 + 4)
SLOT_BYTES = (SLOT_BYTES + PAGE - 1) // PAGE * PAGE

# How records lie in blocks. The same few records fit into one block of the first kind, and with one
# record in each block of the second kind they do not fit into the five frames.
Blocks = namedtuple("Blocks", "pages records_each")
IN_MEMORY, SPILLED = Blocks(1, 100), Blocks(8, 1)

Reply = namedtuple("Reply", "code system_error record_count group_count")


def message(body):
    return struct.pack("<I", 4 + len(body)) + body


def named(name):
    """An answer, or the word to stop: nothing but the four characters at byte 20."""
    return message(bytes(16) + name.ljust(4).encode())


def key(data_type, length, offset, kind, order=0, group_key=0):
    return struct.pack("<BBHHBBBBH", data_type, 0, length, offset, kind, group_key, order, 0, 0)


class Server:
    """One sort process, its slot and its work file."""

    def __init__(self, program, folder):
        shared = os.memfd_create("slots")
        os.ftruncate(shared, SLOT * SLOT_BYTES)
        self.slot = mmap.mmap(shared, SLOT_BYTES, offset=(SLOT - 1) * SLOT_BYTES)
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(f"{folder}/tavrin.internal.7")
        listener.listen()
        # The process opens the file and never makes it: it is there before the answer to the hello.
        self.work_file = open(f"{folder}/1.5{SLOT}", "w+b", buffering=0)
        self.process = subprocess.Popen(
            [program, str(MEMORY_PAGES), str(SLOT), str(shared), folder + "/",
             str(PAGES_PER_BLOCK)],
            env={"TAVRIN_TMP": folder, "TAVRIN_MBX": "7", "TVWK": folder}, pass_fds=[shared])
        self.connection, _ = listener.accept()
        listener.close()
        os.close(shared)
        hello = self.receive()
        assert struct.unpack_from("<Iii", hello) == (80, self.process.pid, 0)
        self.connection.sendall(named("TVWK"))

    def receive(self):
        reply = b""
        while len(reply) < 80:
            piece = self.connection.recv(80 - len(reply))
            if not piece:
                sys.exit("the process has ended")
            reply += piece
        return reply

    def place(self, block, blocks):
        """Where block number `block`, from 0, lies in the slot; None when it has no frame."""
        frame_count = PAGES_PER_BLOCK // blocks.pages * MEMORY_BLOCKS
        return 8192 + block * blocks.pages * PAGE if block < frame_count else None

    def lay(self, records, blocks):
        """Blocks into frames as long as there are any, and into the file behind them."""
        count = -(-len(records) // blocks.records_each)
        for block in range(count):
            first = block * blocks.records_each
            content = b"".join(records[first:first + blocks.records_each])
            place = self.place(block, blocks)
            if place is not None:
                self.slot[place:place + len(content)] = content
            else:
                os.pwrite(self.work_file.fileno(), content, block * blocks.pages * PAGE)
        return count

    def take(self, count, record_length, blocks):
        """The first `count` records of a result, which lies as the data set did."""
        records = []
        for block in range(-(-count // blocks.records_each)):
            length = min(blocks.records_each, count - len(records)) * record_length
            place = self.place(block, blocks)
            if place is not None:
                content = self.slot[place:place + length]
            else:
                content = os.pread(self.work_file.fileno(), length, block * blocks.pages * PAGE)
            records += [content[i:i + record_length] for i in range(0, length, record_length)]
        return records

    def ask(self, records, blocks, mode, keys, limit=0):
        """Serves a request whole: the reply, and the records of the result after code 0."""
        file_blocks, record_length = self.lay(records, blocks), len(records[0])
        self.connection.sendall(message(
            bytes(16) + b"TVWK" + bytes(36)
            + struct.pack("<iiiHHHHi", file_blocks, blocks.pages, len(records), blocks.records_each,
                          record_length, len(keys), mode, limit)
            + b"".join(keys) + struct.pack("<H", 0)))
        reply = self.receive()
        code, = struct.unpack_from("<I", reply, 8)
        system_error, = struct.unpack_from("<i", reply, 44)
        record_count, group_count = struct.unpack_from("<ii", reply, 68)
        if code != 0:
            return Reply(code, system_error, None, None), []
        return (Reply(code, None, record_count, group_count),
                self.take(record_count, record_length, blocks))

    def stop(self):
        self.connection.sendall(named("SHUT"))
        return self.process.wait()


# The records of the requests: 4 bytes of the server's own, 8 that belong to the process where a
# mode has use for them (byte 4 arrives as the operand), the level, a key, a number of the record's
# own and three null indicators.
RECORD = struct.Struct("<4sB7xiii3sx")
KEY_OFFSET, NUMBER_OFFSET, NULLS_OFFSET = 16, 20, 24


def record(value, operand=1, level=1, number=0, null=False):
    return RECORD.pack(b"mine", operand, level, value, number, bytes([null, 0, 0]))


def value_of(content):
    return RECORD.unpack(content)[3]


def value_and_flag(content):
    _, flag, _, value, _, _ = RECORD.unpack(content)
    return value, flag


def level_and_value(content):
    _, _, level, value, _, _ = RECORD.unpack(content)
    return level, value


def operands(*counts_of_values):
    """Of each value, so many records of operand 1, so many of operand 2 and so on."""
    return [record(value, operand) for value, *counts in counts_of_values
            for operand, count in enumerate(counts, 1) for _ in range(count)]


RISING = key(2, 4, KEY_OFFSET, kind=1, order=1)
FALLING = key(2, 4, KEY_OFFSET, kind=0, order=1)
GROUPED = key(2, 4, KEY_OFFSET, kind=1, order=1, group_key=2)
NUMBER = key(2, 4, NUMBER_OFFSET, kind=1, order=2)
NULLS = key(0, 3, NULLS_OFFSET, kind=4)
DROPPED = key(0, 0, 0, kind=1)

PLAIN = [record(value) for value in (7, -3, 7, 0, 7, 12, -3)]
OPERANDS = operands((10, 5, 2, 3), (20, 5, 1, 1), (30, 2, 0, 0), (40, 0, 1, 1), (50, 3, 2, 0),
                    (60, 2, 5, 0))
FOREST = [record(value, 0, level) for level, value in
          ((1, 8), (2, 3), (3, 9), (3, 1), (2, 2), (1, 5), (2, 6), (2, 4))]
TWICE = [record(value, number=n) for n, value in enumerate((4, 9, 1, 9, 2, 8))]
ONCE = [record(value, number=n) for n, value in enumerate((4, 9, 1, 7, 2, 8))]
NULL_TWICE = [record(value, number=n, null=value == 9)
              for n, value in enumerate((4, 9, 1, 9, 2, 8))]

# Title, mode, records, keys, limit; then code, records and groups that come back, and what of each
# record is looked at.
Case = namedtuple("Case", "title mode records keys limit code count groups look result")
CASES = [
    Case("order", 0, PLAIN, [FALLING], 0, 0, 7, 0, value_of, [12, 7, 7, 7, 0, -3, -3]),
    Case("order, limited", 0, PLAIN, [FALLING], 2, 0, 4, 0, value_of, [12, 7, 7, 7]),
    Case("distinct", 1, PLAIN, [GROUPED], 0, 0, 4, 1, value_of, [-3, 0, 7, 12]),
    Case("groups", 2, PLAIN, [GROUPED], 0, 0, 7, 4, value_and_flag,
         [(-3, 1), (-3, 2), (0, 3), (7, 1), (7, 0), (7, 2), (12, 1)]),
    Case("intersection", 3, OPERANDS, [GROUPED], 0, 0, 4, 0, value_of, [10, 20, 50, 60]),
    Case("intersection, counted", 4, OPERANDS, [GROUPED], 0, 0, 6, 0, value_of,
         [10, 20, 50, 50, 60, 60]),
    Case("difference", 5, OPERANDS, [GROUPED], 0, 0, 1, 0, value_of, [30]),
    Case("difference, counted", 6, OPERANDS, [GROUPED], 0, 0, 9, 0, value_of,
         [10, 10, 20, 20, 20, 20, 30, 30, 50]),
    Case("hierarchy", 7, FOREST, [DROPPED, RISING], 0, 0, 8, 0, level_and_value,
         [(1, 5), (2, 4), (2, 6), (1, 8), (2, 2), (2, 3), (3, 1), (3, 9)]),
    Case("unique", 8, ONCE, [RISING, NUMBER], 0, 0, 6, 0, value_of, [1, 2, 4, 7, 8, 9]),
    Case("not unique", 8, TWICE, [RISING, NUMBER], 0, 903, None, None, None, []),
    Case("unique but for nulls", 9, NULL_TWICE, [RISING, NUMBER, NULLS], 0, 0, 6, 0, value_of,
         [1, 2, 4, 8, 9, 9]),
    Case("not unique, no null", 9, TWICE, [RISING, NUMBER, NULLS], 0, 903, None, None, None, []),
]


def check_modes(server):
    for case in CASES:
        for where, blocks in (("in memory", IN_MEMORY), ("spilled", SPILLED)):
            reply, records = server.ask(case.records, blocks, case.mode, case.keys, case.limit)
            got = (reply.code, reply.record_count, reply.group_count,
                   [case.look(content) for content in records])
            if got != (case.code, case.count, case.groups, case.result):
                sys.exit(f"mode {case.mode}, {case.title}, {where}: {got}")


def check_large_order(server):
    random.seed(20561)
    keys = [random.randrange(-2**31, 2**31) for _ in range(20000)]
    blocks = Blocks(pages=1, records_each=PAGE // 12)
    rows = [struct.pack("<Qi", number, value) for number, value in enumerate(keys)]
    reply, records = server.ask(rows, blocks, 0, [key(2, 4, 8, kind=0, order=1)])
    if reply.code != 0:
        sys.exit(f"code {reply.code}, system error {reply.system_error}")
    if [struct.unpack("<Qi", content)[1] for content in records] != sorted(keys, reverse=True):
        sys.exit("the result is not in order")
    return reply.record_count


def main():
    with tempfile.TemporaryDirectory() as folder:
        server = Server(sys.argv[1] if len(sys.argv) > 1 else "tvsort", folder)
        check_modes(server)
        count = check_large_order(server)
        if server.stop() != 0:
            sys.exit("the process has not ended with status 0")
    print(f"{len(CASES)} results as they should be, in memory and spilled; "
          f"{count} records in order")


if __name__ == "__main__":
    main()
