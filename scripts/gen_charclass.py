#!/usr/bin/env python3
"""Generates src/charclass_table.inc, the classification table behind is_alpha,
is_digit, is_lower, is_upper, is_space and is_punct for 16-bit units of 128 and above.

Regenerate (Debian/Ubuntu, packages unicode-data and python3):

    python3 scripts/gen_charclass.py > src/charclass_table.inc

Options: --unicode-data FILE, --derived-age FILE (defaults below), --age X.Y
(repertoire, default 3.1), --stats (prints the count and per-flag totals to stderr).

The table describes the Unicode of the library's era, not today's:

* Repertoire: the code points from U+00A0 to U+FFDC that DerivedAge.txt dates to
  Unicode 3.1 or earlier, one row per line of UnicodeData.txt. A range is two lines
  ("<..., First>" and "<..., Last>"); the First line yields a row for its own code
  point like any other line (so U+3400, U+4E00 and U+AC00 are letters while the rest
  of their blocks is not in the table), the Last line yields none.
* General categories: those of the Unicode 3.2 database (Python's
  unicodedata.ucd_3_2_0, the newest 3.x data at hand). The installed UnicodeData.txt
  carries today's categories, which later versions changed for a few dozen of these
  characters (U+00A7 and U+00B6 became punctuation, U+00AD stopped being one, the
  modifier letters U+02C6..U+02CF became letters, U+2308..U+230B became brackets).
* Case mappings: fields 12-14 of UnicodeData.txt, counted only when the mapped-to
  character belongs to the repertoire too (a mapping added later, to a character that
  did not exist yet, did not exist then).

Flags (alpha 1, lower 2, upper 4, space 8, punct 16, digit 32):
* a letter (L*) gets alpha;
  Lt gets alpha|lower|upper;
  Ll with an uppercase or titlecase mapping gets lower;
  Lu with a lowercase mapping gets upper;
  letters without a case mapping (Lo, Lm, and Ll/Lu such as U+00DF, U+0138, U+2102)
  get alpha only;
* punctuation (Pc, Pd, Ps, Pe, Pi, Pf, Po) gets punct;
* a decimal digit (Nd) gets digit;
* exactly U+00A0, U+1680, U+2000..U+200B, U+202F and U+3000 get space;
* symbols, numbers other than Nd (letter-like numbers among them), marks, controls
  and format characters get nothing.
Only rows with at least one flag are written; the rows are sorted by code.
"""

import argparse
import sys
import unicodedata

ALPHA, LOWER, UPPER, SPACE, PUNCT, DIGIT = 1, 2, 4, 8, 16, 32
SPACES = {0x00A0, 0x1680, 0x202F, 0x3000} | set(range(0x2000, 0x200C))
LOW, HIGH = 0x00A0, 0xFFDC


def parse_age(text):
    major, minor = text.strip().split('.')[:2]
    return (int(major), int(minor))


def read_ages(path):
    ages = {}
    with open(path, encoding='utf-8') as f:
        for line in f:
            line = line.split('#', 1)[0].strip()
            if not line:
                continue
            cps, age = (x.strip() for x in line.split(';'))
            if '..' in cps:
                lo, hi = (int(x, 16) for x in cps.split('..'))
            else:
                lo = hi = int(cps, 16)
            a = parse_age(age)
            for cp in range(lo, hi + 1):
                ages[cp] = a
    return ages


def classify(cp, category, fields, in_repertoire):
    def mapped(field):
        return bool(field) and in_repertoire(int(field, 16))

    flags = 0
    if category.startswith('L'):
        flags |= ALPHA
        upper_map, lower_map, title_map = fields[12], fields[13], fields[14]
        if category == 'Lt':
            flags |= LOWER | UPPER
        elif category == 'Ll' and (mapped(upper_map) or mapped(title_map)):
            flags |= LOWER
        elif category == 'Lu' and mapped(lower_map):
            flags |= UPPER
    elif category.startswith('P'):
        flags |= PUNCT
    elif category == 'Nd':
        flags |= DIGIT
    if cp in SPACES:
        flags |= SPACE
    return flags


def main():
    ap = argparse.ArgumentParser(description=__doc__.split('\n')[0])
    ap.add_argument('--unicode-data', default='/usr/share/unicode/UnicodeData.txt')
    ap.add_argument('--derived-age', default='/usr/share/unicode/DerivedAge.txt')
    ap.add_argument('--age', default='3.1')
    ap.add_argument('--stats', action='store_true')
    args = ap.parse_args()

    era = parse_age(args.age)
    if era > (3, 2):
        ap.error('--age: the categories come from Unicode 3.2, so the repertoire stops there')
    ages = read_ages(args.derived_age)
    ucd = unicodedata.ucd_3_2_0

    def in_repertoire(cp):
        return cp in ages and ages[cp] <= era

    rows = []
    with open(args.unicode_data, encoding='utf-8') as f:
        for line in f:
            fields = line.rstrip('\n').split(';')
            if len(fields) < 15:
                continue
            cp = int(fields[0], 16)
            if cp < LOW or cp > HIGH or not in_repertoire(cp):
                continue
            if fields[1].startswith('<') and fields[1].endswith(', Last>'):
                continue
            flags = classify(cp, ucd.category(chr(cp)), fields, in_repertoire)
            if flags:
                rows.append((cp, flags))
    rows.sort()

    out = sys.stdout
    out.write('// Generated by scripts/gen_charclass.py from UnicodeData.txt and DerivedAge.txt\n')
    out.write('// (repertoire Unicode %d.%d, categories of Unicode 3.2). Do not edit; regenerate.\n'
              % era)
    out.write('// %d entries {code, flags}: alpha 1, lower 2, upper 4, space 8, punct 16, digit 32.\n'
              % len(rows))
    for i in range(0, len(rows), 6):
        out.write(' '.join('{0x%04X, 0x%02X},' % r for r in rows[i:i + 6]) + '\n')

    if args.stats:
        names = ((ALPHA, 'alpha'), (LOWER, 'lower'), (UPPER, 'upper'), (SPACE, 'space'),
                 (PUNCT, 'punct'), (DIGIT, 'digit'))
        sys.stderr.write('%d entries\n' % len(rows))
        for bit, name in names:
            sys.stderr.write('  %-5s %d\n' % (name, sum(1 for _, fl in rows if fl & bit)))


if __name__ == '__main__':
    main()
