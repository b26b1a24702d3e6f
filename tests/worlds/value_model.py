"""What the types of text values mean: draws of each, and keys that Python orders as the type does.

None of it is taken from the command: numbers are Python's own, days its calendar's, addresses its
ipaddress'. A key of None says that the text is no value of the type.
"""

import datetime
import ipaddress
import math
import re
import struct
import uuid
from decimal import Decimal
from fractions import Fraction

NAN = 'NaN'  # a key of its own: its place is the key's to say

# Alphabets that make texts alike, with what CSV and keys have a use for.
LETTERS = ['a', 'b', 'ab', 'B', 'A', 'é', 'É', 'ß', 'ss', '\x01', '\x02', '0', '9', ',', '"', ' ', 'x' * 40]


def draw_text(random):
    return ''.join(random.choice(LETTERS) for _ in range(random.choice([0, 1, 1, 2, 3, 6])))


def text_key(text):
    return text.encode()


def folded_key(text):
    return text.casefold().encode()


def draw_digits(random, most):
    return ''.join(random.choice('0159') for _ in range(random.randint(1, most)))


def draw_natural(random):
    return ''.join(random.choice(['a', 'b', '.', draw_digits(random, 5), '0', '00'])
                   for _ in range(random.randint(0, 4)))


def natural_key(text):
    """A number stands where its first digit would, by its value; leading zeros count at the end."""
    parts = re.findall(r'[0-9]+|[^0-9]', text)
    key = [(ord('0'), int(part)) if part[0].isdigit() else (ord(part), 0) for part in parts]
    return key, [len(p) - len(p.lstrip('0')) for p in parts if p[0].isdigit()]


def draw_integer(bits):
    def draw(random):
        size = random.choice([1, 3, bits // 2, bits - 1])
        return random.choice(['', '', ' ', '0']) + str(random.randrange(2**size)) \
            if random.random() < 0.5 else str(-random.randrange(2**size))
    return draw


def integer_key(least, greatest):
    def key(text):
        if not re.fullmatch(r'[ \t]*[+-]?[0-9]+[ \t]*', text):
            return None
        value = int(text)
        return value if least <= value <= greatest else None
    return key


def draw_float(random):
    kind = random.randrange(8)
    if kind == 0:
        return random.choice(['nan', 'inf', '-inf', '-0', '0', '0.0', '-0.0', 'NaN', 'Infinity'])
    if kind < 4:
        return repr(1700000000 + random.randrange(40) / 4e6)
    return random.choice(['%g', '%.17g', '%e']) % (random.choice([1, -1, 1e-9, -1e30]) *
                                                   random.randrange(50))


def float_key(text):
    value = float(text)
    return NAN if math.isnan(value) else value


def single_key(text):
    value = float(text)
    return NAN if math.isnan(value) else struct.unpack('f', struct.pack('f', value))[0]


def draw_decimal(random):
    if random.random() < 0.05:
        return random.choice(['NaN', 'inf', '-Infinity'])
    text = random.choice(['', '', '-', '+', '-0', '00'])
    text += draw_digits(random, random.choice([1, 2, 40]))
    if random.random() < 0.5:
        text += '.' + draw_digits(random, random.choice([1, 30]))
    if random.random() < 0.2:
        text += random.choice('eE') + str(random.randint(-30, 30))
    return text


def decimal_key(text):
    value = Decimal(text)
    return NAN if value.is_nan() else value


def draw_size(random):
    number = random.choice(['', '-']) + str(random.randrange(2000))
    if random.random() < 0.3:
        number += '.' + draw_digits(random, 3)
    return number + random.choice(['', '', 'K', 'k', 'M', 'G', 'Ki', 'Mi', 'GiB', 'KB', ' Ki', 'Y'])


def size_key(text):
    number, unit = re.fullmatch(r'(-?[0-9.]+) ?([a-zA-Z]*)', text).groups()
    unit = unit.removesuffix('B')
    base = 1024 if unit.endswith('i') else 1000
    return Fraction(number) * base ** (' KMGTPEZY'.index(unit[0].upper()) if unit else 0)


def draw_hex(random):
    return random.choice(['', '0x', '-', '-0X', '00']) + '%x' % random.randrange(
        random.choice([4, 256, 4097, 2**70]))


def draw_day(random):
    if random.random() < 0.1:
        return random.choice(['-0001-02-28', '+12024-02-29', '-0400-02-29', '0000-02-29'])
    return datetime.date.fromordinal(random.choice(
        [random.randrange(1, 3652059), random.randrange(719160, 719165)])).isoformat()


def day_key(text):
    year, month, day = re.fullmatch(r'([+-]?\d+)-(\d\d)-(\d\d)', text).groups()
    cycles, year = divmod(int(year), 400)
    return cycles * 146097 + datetime.date(year + 400, int(month), int(day)).toordinal()


def draw_time(random):
    text = '%02d:%02d' % (random.choice([0, 9, 23]), random.randrange(60))
    if random.random() < 0.7:
        text += ':%02d' % random.choice([0, 1, 59, 60])
        if random.random() < 0.5:
            text += '.' + draw_digits(random, 9)
    return text


def time_key(text):
    hour, minute, second = (text + ':0').split(':')[:3]
    return 3600 * int(hour) + 60 * int(minute) + Fraction(second)


def draw_timestamp(random):
    if random.random() < 0.2:
        return draw_day(random)
    return draw_day(random) + random.choice('T t') + draw_time(random)


def timestamp_key(text):
    day, _, time = text.replace('t', 'T').replace(' ', 'T').partition('T')
    return 86400 * day_key(day) + (time_key(time) if time else 0)


def draw_zoned(random):
    text = draw_timestamp(random)
    if ':' not in text:
        return text
    return text + random.choice(['', 'Z', '+02:00', '-0330', '+14', ' +01'])


def zoned_key(text):
    match = re.fullmatch(r'(.*:.*?) ?(?:Z|([+-]\d\d):?(\d\d)?)', text)
    if match is None:
        return timestamp_key(text)
    time, hours, minutes = match.groups()
    sign = -1 if hours and hours[0] == '-' else 1
    ahead = 3600 * abs(int(hours or 0)) + 60 * int(minutes or 0)
    return timestamp_key(time) - sign * ahead


MONTHS = ['january', 'february', 'march', 'april', 'may', 'june', 'july', 'august', 'september',
          'october', 'november', 'december']


def draw_month(random):
    month = random.choice(MONTHS)
    return random.choice([month, month[:3].upper(), month.title()])


TRUE = {'true': 1, 't': 1, 'yes': 1, 'y': 1, 'on': 1, '1': 1,
        'false': 0, 'f': 0, 'no': 0, 'n': 0, 'off': 0, '0': 0}


def draw_uuid(random):
    number = random.choice([random.getrandbits(128), random.randrange(3)])
    return random.choice([str, lambda u: u.hex, lambda u: str(u).upper(), lambda u: '{%s}' % u])(
        uuid.UUID(int=number))


def draw_address(random):
    kind = random.randrange(3)
    if kind == 0:
        number = random.choice([0, 2**32 - 1, random.getrandbits(32), (10 << 24) + random.randrange(999)])
        text, bits = str(ipaddress.IPv4Address(number)), 32
    else:
        number = random.choice([random.getrandbits(128), (0x20010db8 << 96) + random.randrange(99)])
        text, bits = str(ipaddress.IPv6Address(number)), 128
    return text + ('/%d' % random.randint(0, bits) if random.random() < 0.4 else '')


def address_key(text):
    face = ipaddress.ip_interface(text)
    return face.version, int(face.network.network_address), face.network.prefixlen, int(face.ip)


def tried(key):
    """None for what Python's own reader refuses."""
    def answer(text):
        try:
            return key(text.strip(' \t'))
        except (ValueError, ArithmeticError, AttributeError, KeyError):
            return None
    return answer


# By the words of --key and --as: a draw, a key, and whether the empty text is a value.
TYPES = {
    'text': (draw_text, text_key, True),
    'string': (draw_text, text_key, True),
    'text:nocase': (draw_text, folded_key, True),
    'natural': (draw_natural, natural_key, True),
    'int': (draw_integer(64), integer_key(-2**63, 2**63 - 1), False),
    'int32': (draw_integer(32), integer_key(-2**31, 2**31 - 1), False),
    'int16': (draw_integer(16), integer_key(-2**15, 2**15 - 1), False),
    'byte': (lambda random: str(random.randrange(256)), integer_key(0, 255), False),
    'double': (draw_float, tried(float_key), False),
    'float': (draw_float, tried(single_key), False),
    'decimal': (draw_decimal, tried(decimal_key), False),
    'size': (draw_size, tried(size_key), False),
    'hex': (draw_hex, tried(lambda text: int(text, 16)), False),
    'boolean': (lambda random: random.choice(list(TRUE)).title(),
                tried(lambda text: TRUE[text.lower()]), False),
    'date': (draw_day, tried(day_key), False),
    'time': (draw_time, tried(time_key), False),
    'timestamp': (draw_timestamp, tried(timestamp_key), False),
    'timestamptz': (draw_zoned, tried(zoned_key), False),
    'month': (draw_month, tried(lambda text: [m[:3] for m in MONTHS].index(text[:3].lower())), False),
    'uuid': (draw_uuid, tried(lambda text: uuid.UUID(text).int), False),
    'inet': (draw_address, tried(address_key), False),
}
