#!/usr/bin/env python3
"""The command beside a model of what it promises, in small worlds of chance.

A world is a few inputs of one kind, keys, and what is wanted of them. Its result by the model,
stable sorts of Python's from the last key to the first, must be the command's, byte for byte, in
any memory and with any number of processes. A world can be made again from its seed, which a
failure names:

    command_worlds.py TVSORT-HOST FIRST-SEED COUNT
"""

import random as chance
import subprocess
import sys
import tempfile
from pathlib import Path

from value_model import NAN, TYPES, draw_text

MEMORIES = [['--memory', '64M'], ['--memory', '100K'], ['--memory', '20K', '--block-pages', '1'],
            ['--memory', '8M', '--processes', '3']]
FAILED = 'failed'


class Key:
    """One of a world's keys: a column, a type, and the words behind it."""

    def __init__(self, random, column):
        self.column = column
        self.type = random.choice(list(TYPES))
        self.draw, self.value, self.takes_empty = TYPES[self.type]
        self.descends = random.random() < 0.4
        self.nulls = random.choice([None, 'nulls-first', 'nulls-last'])
        can_be_nan = self.type in ('double', 'float', 'decimal')
        self.nans = random.choice([None, 'nan-first', 'nan-last']) if can_be_nan else None

    def words(self):
        words = [self.type, 'desc' if self.descends else None, self.nulls, self.nans]
        return ':'.join(word for word in words if word)

    def order(self, rows, is_reversed):
        """Stable, of rows with their keys' values: None for null, (text,) for an unreadable one."""
        descends = self.descends != is_reversed

        def place(word, row_class):
            # What is greatest unless it is placed.
            if self.nulls is not None and row_class == 'null':
                return -1 if self.nulls == 'nulls-first' else 1
            return word

        def group(row):
            value = row.values[self.column]
            last = -1 if descends else 1
            if isinstance(value, Unreadable):
                return 3, 0
            if value is None:
                return {'nulls-first': -2, 'nulls-last': 2, None: 2 * last}[self.nulls], 0
            if value == NAN:
                return 0, {'nan-first': -1, 'nan-last': 1, None: last}[self.nans]
            return 0, 0

        plain = [row for row in rows if group(row) == (0, 0)]
        plain.sort(key=lambda row: row.values[self.column], reverse=descends)
        others = sorted((row for row in rows if group(row) != (0, 0)), key=lambda row: (
            group(row), getattr(row.values[self.column], 'text', b'')))
        return ([row for row in others if group(row) < (0, 0)] + plain +
                [row for row in others if group(row) > (0, 0)])


class Unreadable:
    def __init__(self, text):
        self.text = text.encode()

    def __eq__(self, other):
        return isinstance(other, Unreadable) and other.text == self.text

    def __hash__(self):
        return hash(self.text)


class Row:
    def __init__(self, source, raw, values):
        self.source = source  # of the inputs
        self.raw = raw        # as it stands in the file, with its line end
        self.values = values  # of the keys, by column


class World:
    def __init__(self, seed, folder):
        self.random = chance.Random(seed)
        self.folder = folder
        self.kind = self.random.choice(['csv', 'lines', 'fields'])
        self.keys = [Key(self.random, i) for i in range(self.random.choice([1, 1, 2, 3]))]
        if self.kind == 'lines':
            self.keys = self.keys[:1]
        self.is_reversed = self.random.random() < 0.2
        self.null_word = 'N/A' if self.random.random() < 0.3 else None
        self.end = b'\0' if self.kind != 'csv' and self.random.random() < 0.2 else b'\n'
        self.delimiter = self.random.choice(',,;\t')
        self.has_header = self.random.random() < 0.7
        self.is_ragged = self.random.random() < 0.2
        self.on_error = self.random.choice([None, None, 'skip', 'last'])
        self.has_levels = self.kind != 'fields' and self.random.random() < 0.15
        self.is_ragged = self.is_ragged and not self.has_levels
        self.deepest = 0, 0
        self.bad_rows = 0
        self.make_inputs()
        self.choose_operation()

    # Inputs

    def make_inputs(self):
        count = self.random.choice([0, 1, 3, 40, 40, 300, 300, 2500])
        pool = [[key.draw(self.random) for _ in range(max(2, count // 3))] for key in self.keys]
        self.inputs = []
        self.rows = []
        for source in range(self.random.choice([1, 1, 2, 3])):
            content = b''
            rows = self.random.randint(0, count)
            if self.kind == 'csv' and self.has_header:
                mark = b'\xef\xbb\xbf' if source == 0 and self.random.random() < 0.1 else b''
                content = mark + self.delimiter.join(self.names()).encode() + self.line_end()
            elif self.kind == 'csv' and rows == 0 and source == 0:
                rows = 1
            for i in range(rows):
                made = self.make_row(source, [self.random.choice(p) for p in pool],
                                     i + 1 == rows and self.random.random() < 0.3)
                content += made.raw
                self.rows.append(made)
            name = 'in%d' % source
            (self.folder / name).write_bytes(content)
            self.inputs.append(name)
            if source == 0:
                self.first_end = b'\r\n' if content.split(b'\n')[0].endswith(b'\r') else b'\n'
                if self.kind == 'csv' and b'\n' not in content:
                    self.first_end = b'\n'
                self.head = content[:content.index(b'\n') + 1] \
                    if self.kind == 'csv' and self.has_header else b''

    def names(self):
        return ['k%d' % key.column for key in self.keys] + ['rest']

    def line_end(self):
        return self.random.choice([b'\n', b'\n', b'\r\n']) if self.kind == 'csv' else self.end

    def make_row(self, source, texts, lacks_end):
        values = []
        texts = [self.disturbed(text) for text in texts]
        if self.kind == 'lines':
            if self.has_levels:
                # Blanks count in texts, and in front of none else.
                self.draw_level(source)
                texts[0] = '\t' * (self.deepest[1] - 1) + (texts[0].lstrip() or 'x' * self.keys[0].takes_empty)
            raw = texts[0].encode()
            lacks_end = lacks_end and raw
        elif self.kind == 'fields':
            # Blanks end a field, and an empty one cannot stand before another one.
            for i in range(len(texts)):
                while ' ' in texts[i] or (texts[i] == '' and i + 1 < len(texts)):
                    texts[i] = self.keys[i].draw(self.random)
            blank = lambda: self.random.choice([' ', '  ', '\t'])
            raw = (self.random.choice(['', ' ']) + ''.join(t + blank() for t in texts)).encode()
            if texts[-1] == '':
                texts[-1] = None
        else:
            texts += [self.draw_level(source) if self.has_levels else str(self.random.randrange(10))]
            if self.is_ragged and self.random.random() < 0.3:
                texts = texts[:self.random.randint(1, len(texts))] if self.random.random() < 0.7 \
                    else texts + ['more']
            fields = []
            for i, text in enumerate(texts):
                is_text = i < len(self.keys) and self.keys[i].takes_empty
                if text == '' and not (is_text and self.random.random() < 0.5):
                    fields.append('')
                    texts[i] = None
                    continue
                quoted = self.random.random() < 0.2 or any(
                    c in text for c in self.delimiter + '"\n\r') or text == ''
                fields.append('"%s"' % text.replace('"', '""') if quoted else text)
            # A line of nothing is one null field.
            raw = self.delimiter.join(fields).encode()
            lacks_end = lacks_end and raw
        is_bad = False
        for key in self.keys:
            text = texts[key.column] if key.column < len(texts) else None
            if self.kind == 'lines' and self.has_levels:
                text = text.lstrip('\t')
            is_null = text is None or text == self.null_word or (
                self.kind == 'lines' and text == '' and not key.takes_empty)
            value = None if is_null else key.value(text)
            if not is_null and value is None:
                value = Unreadable(text)
                is_bad = True
            values.append(value)
        self.bad_rows += is_bad
        row = Row(source, raw + (b'' if lacks_end else self.line_end()), values)
        row.is_bad = is_bad
        row.level = self.level_of(row, texts[-1]) if self.has_levels else 1
        self.bad_rows += row.level is None and not is_bad
        row.is_bad = is_bad or row.level is None
        return row

    def draw_level(self, source):
        if self.on_error is not None and self.random.random() < 0.05:
            return self.random.choice(['', 'x'])
        deepest = self.deepest[1] if self.deepest[0] == source else 0
        self.deepest = source, self.random.randint(1, min(deepest + 1, 5))
        return str(self.deepest[1])

    def level_of(self, row, text):
        if self.kind == 'csv':
            return int(text) if text and text.isdigit() else None
        return 1 + len(row.raw) - len(row.raw.lstrip(b'\t'))

    def disturbed(self, text):
        """Now and then it is null, or no value of its type, or has blanks around it."""
        draw = self.random.random()
        if draw < 0.1:
            return self.null_word or ''
        if draw < 0.13 and self.on_error is not None:
            return draw_text(self.random).strip()
        return text

    # What is wanted

    def choose_operation(self):
        several = len(self.inputs) > 1
        self.operation = self.random.choice(
            ['order', 'order', 'distinct', 'groups', 'groups=count', 'unique'] +
            (['intersect', 'except'] if several else []))
        if self.has_levels:
            self.operation = 'hierarchy'
        sets = self.operation in ('intersect', 'except')
        self.all = sets and self.random.random() < 0.5
        self.limit = self.random.choice([1, 2, 7, 100]) \
            if not sets and self.random.random() < 0.3 else None
        self.with_ties = self.limit is not None and self.random.random() < 0.4

    def words(self):
        words = []
        if self.kind == 'lines':
            words += ['--lines', '--as', self.keys[0].words()]
        else:
            words += ['--format', self.kind]
            for key in self.keys:
                name = 'k%d' % key.column if self.kind == 'csv' and self.has_header \
                    else str(key.column + 1)
                words += ['--key', '%s:%s' % (name, key.words())]
        if self.kind == 'csv':
            words += ['--delimiter', self.delimiter]
            words += [] if self.has_header else ['--no-header']
            words += ['--ragged'] if self.is_ragged else []
        elif self.end == b'\0':
            words += ['--zero-terminated']
        words += ['--reverse'] if self.is_reversed else []
        words += ['--null', self.null_word] if self.null_word else []
        words += ['--on-error', self.on_error] if self.on_error else []
        return words

    def wanted_words(self):
        words = [] if self.operation == 'order' else ['--' + self.operation]
        words += ['--level', 'rest' if self.has_header else str(len(self.keys) + 1)] \
            if self.has_levels and self.kind == 'csv' else []
        words += ['--all'] if self.all else []
        words += ['--limit', str(self.limit)] if self.limit else []
        words += ['--with-ties'] if self.with_ties else []
        return words

    # The model

    def ordered(self):
        rows = [row for row in self.rows if not (row.is_bad and self.on_error == 'skip')]
        for key in reversed(self.keys):
            rows = key.order(rows, self.is_reversed)
        return rows

    def text(self, row):
        end = self.first_end if self.kind == 'csv' else self.end
        if self.kind == 'csv':
            return row.raw if row.raw.endswith(b'\n') else row.raw + end
        return row.raw if row.raw.endswith(end) and row.raw else row.raw + end

    def runs(self):
        runs = []
        for row in self.ordered():
            if runs and same(runs[-1][0], row):
                runs[-1].append(row)
            else:
                runs.append([row])
        return runs

    def limited(self, runs):
        """Runs cut at the limit; with ties only at a run's end."""
        left = self.limit if self.limit else 1 << 60
        for run in runs:
            if left <= 0:
                return
            yield run if self.with_ties else run[:left]
            left -= len(run)

    def expected(self):
        runs = self.runs()
        nulls = lambda row: any(value is None for value in row.values)
        if self.operation == 'unique' and any(len(run) > 1 and not nulls(run[0]) for run in runs):
            return FAILED
        if self.operation == 'hierarchy':
            rows = self.arranged()
            if rows is FAILED:
                return FAILED
            runs = list(self.limited(neighbours(rows)))
        elif self.operation == 'distinct':
            runs = [run[:1] for run in runs][:self.limit]
        elif self.operation == 'groups=count':
            runs = runs[:self.limit]
        elif self.operation in ('intersect', 'except'):
            runs = [self.combined(run) for run in runs]
        else:
            runs = list(self.limited(runs))
        head = self.head
        tab = self.delimiter.encode() if self.kind == 'csv' else b'\t'
        if head and self.operation.startswith('groups'):
            column = b'count' if self.operation == 'groups=count' else b'group'
            mark = b'\xef\xbb\xbf' if head.startswith(b'\xef\xbb\xbf') else b''
            head = mark + column + tab + head[len(mark):]
        texts = []
        for number, run in enumerate(runs, 1):
            if self.operation == 'groups=count':
                texts.append(b'%d' % len(run) + tab + self.text(run[0]))
            elif self.operation == 'groups' and self.kind == 'csv':
                texts.append(b''.join(b'%d' % number + tab + self.text(row) for row in run))
            elif self.operation == 'groups' and number > 1:
                texts.append(self.end + b''.join(map(self.text, run)))
            else:
                texts.append(b''.join(map(self.text, run)))
        return head + b''.join(texts)

    def arranged(self):
        """What has no level stands behind the hierarchy, in the order of reading."""
        ranks = {id(row): rank for rank, run in enumerate(self.runs()) for row in run}
        top = Node(None)
        path = [top]
        source = 0
        for row in self.rows:
            if id(row) not in ranks or row.level is None:
                continue
            if row.source != source:
                path = [top]
            source = row.source
            if row.level > len(path):
                return FAILED
            del path[row.level:]
            path.append(Node(row))
            path[-2].children.append(path[-1])
        rows = top.flat(lambda node: ranks[id(node.row)])
        return rows + [row for row in self.rows if row.level is None and id(row) in ranks]

    def combined(self, run):
        counts = [sum(row.source == i for row in run) for i in range(len(self.inputs))]
        if self.operation == 'intersect':
            wanted = min(counts)
        elif self.all:
            wanted = max(0, counts[0] - sum(counts[1:]))
        else:
            wanted = 0 if any(counts[1:]) else counts[0]
        return [row for row in run if row.source == 0][:wanted if self.all else min(wanted, 1)]


class Node:
    def __init__(self, row):
        self.row = row
        self.children = []

    def flat(self, rank):
        rows = [self.row] if self.row else []
        for child in sorted(self.children, key=rank):
            rows += child.flat(rank)
        return rows


def neighbours(rows):
    runs = []
    for row in rows:
        if runs and row.level is not None and same(runs[-1][0], row) and \
                runs[-1][0].level == row.level:
            runs[-1].append(row)
        else:
            runs.append([row])
    return runs


def same(left, right):
    return all(a == b and (a is None) == (b is None) for a, b in zip(left.values, right.values))


class Trial:
    """A world's command, in its folder."""

    def __init__(self, program, world):
        self.program = program
        self.world = world

    def run(self, words):
        return subprocess.run([self.program, 'sort', *words], cwd=self.world.folder,
                              capture_output=True, timeout=120)

    def check(self, condition, words, done, what):
        if condition:
            return
        print('FAILED:', what, '\n ', ' '.join(words), '\n  status', done.returncode,
              done.stderr.decode(errors='replace')[:500])
        raise SystemExit(1)

    def compare(self):
        world = self.world
        expected = world.expected()
        counts = world.bad_rows
        status = 3 if counts and world.on_error else 0
        for memory in MEMORIES:
            words = world.words() + world.wanted_words() + memory + world.inputs
            done = self.run(words)
            if expected is FAILED:
                self.check(done.returncode == 2 and done.stdout == b'', words, done, 'wanted a refusal')
                continue
            self.check(done.returncode == status, words, done, 'status, wanted %d' % status)
            if done.stdout != expected:
                (world.folder / 'expected').write_bytes(expected)
                (world.folder / 'output').write_bytes(done.stdout)
                self.check(False, words, done, 'another output than the model')
            # Where rows were left out by a limit, some were not looked at a last time.
            if counts and world.on_error:
                self.check(b'%d row%s skipped' % (counts, b's'[:counts != 1]) in done.stderr or
                           world.on_error == 'last', words, done, '%d skipped' % counts)
        self.check_and_merge()

    def check_and_merge(self):
        """Outputs are in order, and those of parts merge to that of all."""
        world = self.world
        if world.on_error is not None or world.has_levels or world.kind == 'csv' and not world.rows:
            return
        whole = self.run(world.words() + world.inputs)
        (world.folder / 'whole').write_bytes(whole.stdout)
        words = world.words() + ['--check', 'whole']
        done = self.run(words)
        self.check(done.returncode == 0, words, done, 'in order')
        parts = []
        for name in world.inputs:
            parts.append(name + '.part')
            (world.folder / parts[-1]).write_bytes(self.run(world.words() + [name]).stdout)
        words = world.words() + ['--merge', *parts]
        done = self.run(words)
        merged = done.stdout
        self.check(done.returncode == 0 and same_but_ends(merged, whole.stdout), words, done,
                   'merged parts are the whole')


def same_but_ends(left, right):
    """Each part has line ends of its own where a last row had none."""
    return left.replace(b'\r\n', b'\n') == right.replace(b'\r\n', b'\n')


def main():
    program = str(Path(sys.argv[1]).absolute())
    first, count = int(sys.argv[2]), int(sys.argv[3])
    for seed in range(first, first + count):
        with tempfile.TemporaryDirectory() as name:
            try:
                Trial(program, World(seed, Path(name))).compare()
            except SystemExit:
                print('seed', seed)
                if len(sys.argv) > 4:
                    subprocess.run(['cp', '-r', name, sys.argv[4]])
                raise


if __name__ == '__main__':
    main()
