#!/usr/bin/python3
"""The other side of the compressed-buffer interoperability tests, with Python's zlib.

  zlib_interop.py frame LEVEL IN OUT [LEVEL IN OUT ...]
      writes OUT = 4-byte big-endian length of IN's bytes + zlib.compress(IN, LEVEL)
  zlib_interop.py check ORIGINAL FRAMED [ORIGINAL FRAMED ...]
      decompresses FRAMED, which must hold the length header and exactly one zlib
      stream with nothing after it, and compares the result with ORIGINAL

Exit status 0 when every item passed, 1 with one line per failure on stderr, 2 usage.
"""
import sys
import zlib


def read(path):
    with open(path, "rb") as f:
        return f.read()


def frame(args):
    if len(args) % 3:
        return 2
    for i in range(0, len(args), 3):
        level, src, dst = int(args[i]), args[i + 1], args[i + 2]
        data = read(src)
        with open(dst, "wb") as f:
            f.write(len(data).to_bytes(4, "big"))
            f.write(zlib.compress(data, level))
    return 0


def check(args):
    if len(args) % 2:
        return 2
    failures = 0
    for i in range(0, len(args), 2):
        original, framed = read(args[i]), read(args[i + 1])
        problem = None
        if len(framed) < 4:
            problem = "shorter than the header"
        else:
            claimed = int.from_bytes(framed[:4], "big")
            d = zlib.decompressobj()
            try:
                data = d.decompress(framed[4:]) + d.flush()
            except zlib.error as e:
                data, problem = b"", "zlib: %s" % e
            if problem is None and not d.eof:
                problem = "stream does not end"
            elif problem is None and d.unused_data:
                problem = "%d bytes after the stream" % len(d.unused_data)
            elif problem is None and claimed != len(data):
                problem = "header says %d, stream holds %d" % (claimed, len(data))
            elif problem is None and data != original:
                problem = "content differs"
        if problem:
            failures += 1
            print("%s: %s" % (args[i + 1], problem), file=sys.stderr)
    return 1 if failures else 0


def main(argv):
    if len(argv) < 2:
        return 2
    if argv[1] == "frame":
        return frame(argv[2:])
    if argv[1] == "check":
        return check(argv[2:])
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
