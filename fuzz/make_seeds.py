#!/usr/bin/env python3
"""Writes the binary seeds of note_fuzz and untar_fuzz into fuzz/corpus (run from anywhere)."""
import io
import os
import struct
import tarfile

tarfile.RECORDSIZE = tarfile.BLOCKSIZE  # no padding to 10 KiB records: small seeds
CORPUS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")
PLIST = b"<plist><dict><key>CFBundleName</key><string>Tool</string></dict></plist>"
REGION = struct.pack("<I", len(PLIST)) + PLIST


def align4(data):
    return data + b"\0" * (-len(data) % 4)


def elf_note_section(descriptor):
    name = b"com.brackwood\0"
    return struct.pack("<III", len(name), len(descriptor), 1) + align4(name) + align4(descriptor)


def elf_file(note):
    """Header, the note, a section-name table and three section headers (null, names, note)."""
    names = b"\0.shstrtab\0.note.brackwood\0"
    note_at = 64
    names_at = note_at + len(note)
    shoff = (names_at + len(names) + 7) & ~7
    header = b"\x7fELF" + bytes([2, 1, 1]) + b"\0" * 9
    header += struct.pack("<HHIQQQIHHHHHH", 2, 62, 1, 0, 0, shoff, 0, 64, 0, 0, 64, 3, 1)
    body = header + note + names
    body += b"\0" * (shoff - len(body))

    def section(name, kind, offset, size):
        return struct.pack("<IIQQQQIIQQ", name, kind, 0, 0, offset, size, 0, 0, 1, 0)

    body += section(0, 0, 0, 0)
    body += section(1, 3, names_at, len(names))
    body += section(11, 7, note_at, len(note))
    return body


def macho_file(region):
    """Header, an LC_NOTE of our owner and the LC_SEGMENT_64 whose file range holds its data."""
    commands_size = 40 + 72
    data_at = 32 + commands_size
    note = struct.pack("<II16sQQ", 0x31, 40, b"com.brackwood", data_at, len(region))
    segment = struct.pack("<II16sQQQQIIII", 0x19, 72, b"__DATA", 0x100000000, 0x1000, 0, data_at + len(region),
                          7, 3, 0, 0)
    header = struct.pack("<IiiIIIII", 0xFEEDFACF, 0x01000007, 3, 2, 2, commands_size, 0, 0)
    return header + note + segment + region


def tar_bytes(entries, fmt):
    out = io.BytesIO()
    with tarfile.open(fileobj=out, mode="w", format=fmt) as tar:
        for name, kind, payload in entries:
            info = tarfile.TarInfo(name)
            info.mtime = 0
            if kind == "dir":
                info.type, info.mode = tarfile.DIRTYPE, 0o755
                tar.addfile(info)
            elif kind == "link":
                info.type, info.linkname = tarfile.SYMTYPE, payload
                tar.addfile(info)
            else:
                info.size, info.mode = len(payload), 0o644
                tar.addfile(info, io.BytesIO(payload))
    return out.getvalue()


def write(folder, name, data):
    os.makedirs(os.path.join(CORPUS, folder), exist_ok=True)
    with open(os.path.join(CORPUS, folder, name), "wb") as f:
        f.write(data)


write("note", "elf_with_note", elf_file(elf_note_section(REGION)))
write("note", "note_section", elf_note_section(REGION))
write("note", "macho_with_note", macho_file(REGION))

write("untar", "runtime.tar", tar_bytes([
    ("jre", "dir", None),
    ("jre/Contents/Home/release", "file", b'JAVA_VERSION="17.0.2"\n'),
    ("jre/Contents/Home/lib/libjli.so", "link", "../../MacOS/libjli.dylib"),
    ("jre/Contents/MacOS/libjli.dylib", "file", b"\0" * 700),
], tarfile.USTAR_FORMAT))
write("untar", "long_names.tar", tar_bytes([
    ("jre/" + "d" * 120 + "/file.txt", "file", b"long name\n"),
    ("jre/link", "link", "t" * 120),
], tarfile.GNU_FORMAT))
write("untar", "hostile.tar", tar_bytes([
    ("../outside.txt", "file", b"no\n"),
    ("jre/up", "link", ".."),
    ("jre/up/escaped.txt", "file", b"no\n"),
    ("ok.txt", "file", b"yes\n"),
], tarfile.USTAR_FORMAT))
# Its first bytes are also read as the count and entries of a hostile index: 2^32 members.
write("untar", "index_count_2_32.bin", (1 << 32).to_bytes(8, "little") + (20).to_bytes(4, "little") * 4 +
      tar_bytes([("a.txt", "file", b"a\n")], tarfile.USTAR_FORMAT))
