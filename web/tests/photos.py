"""Photos for tests: EXIF blocks put into JPEG and PNG files, and read from them."""
import struct
import zlib

TEXT, SHORT, LONG, RATIONAL = 2, 3, 4, 5
EXIF = b"Exif\0\0"


def exif_block(order, main, photo, thumbnail=b""):
    """order "<" or ">"; main and photo: {tag: (type, value)}; thumbnail: of a second directory, after all else."""
    def directory(at, entries, link):
        values_at = at + 2 + 12 * len(entries) + 4
        table, values = struct.pack(order + "H", len(entries)), b""
        for tag, (kind, value) in sorted(entries.items()):
            data = {TEXT: lambda: value.encode() + b"\0", SHORT: lambda: struct.pack(order + "H", value),
                    LONG: lambda: struct.pack(order + "I", value),
                    RATIONAL: lambda: struct.pack(order + "II", *value)}[kind]()
            count = len(data) if kind == TEXT else 1
            if len(data) > 4:
                values += b"\0" * (len(values) % 2)
                data, values = struct.pack(order + "I", values_at + len(values)), values + data
            table += struct.pack(order + "HHI", tag, kind, count) + data.ljust(4, b"\0")
        return table + struct.pack(order + "I", link) + values

    main = {**main, 0x8769: (LONG, 0)}
    photo_at = 8 + len(directory(8, main, 0))
    main[0x8769] = (LONG, photo_at)
    photo = directory(photo_at, photo, 0)
    end = photo_at + len(photo)
    if not thumbnail:
        return (b"II" if order == "<" else b"MM") + struct.pack(order + "HI", 42, 8) + directory(8, main, 0) + photo
    second = directory(end, {0x0201: (LONG, end + 30), 0x0202: (LONG, len(thumbnail))}, 0)
    return ((b"II" if order == "<" else b"MM") + struct.pack(order + "HI", 42, 8) + directory(8, main, end) + photo +
            second + thumbnail)


def shot(order="<", make="Maker", model="M1", time=None, part=None, exposure=None, iso=None, orientation=None,
         size=None, thumbnail=b""):
    main, photo = {0x010F: (TEXT, make), 0x0110: (TEXT, model)}, {}
    if orientation:
        main[0x0112] = (SHORT, orientation)
    if time:
        photo[0x9003] = (TEXT, time)
    if part is not None:
        photo[0x9291] = (TEXT, part)
    if exposure:
        photo[0x829A] = (RATIONAL, exposure)
    if iso:
        photo[0x8827] = (SHORT, iso)
    if size:
        photo[0xA002], photo[0xA003] = (SHORT, size[0]), (LONG, size[1])
    return exif_block(order, main, photo, thumbnail)


def with_exif(picture, block):
    """JPEG or PNG bytes without EXIF -> with this block."""
    if picture[:2] == b"\xff\xd8":
        return picture[:2] + b"\xff\xe1" + struct.pack(">H", len(block) + 8) + EXIF + block + picture[2:]
    chunk = b"eXIf" + block
    return picture[:33] + struct.pack(">I", len(block)) + chunk + struct.pack(">I", zlib.crc32(chunk)) + picture[33:]


def exif_of(jpeg):
    """The block, None without one; fails where there are two."""
    at, found = 2, []
    while jpeg[at + 1] != 0xDA:
        length = struct.unpack(">H", jpeg[at + 2:at + 4])[0]
        if jpeg[at + 1] == 0xE1 and jpeg[at + 4:at + 10] == EXIF:
            found.append(jpeg[at + 10:at + 2 + length])
        at += 2 + length
    assert len(found) < 2
    return found[0] if found else None


def size_of(jpeg):
    at = 2
    while jpeg[at + 1] not in (0xC0, 0xC1, 0xC2):
        at += 2 + struct.unpack(">H", jpeg[at + 2:at + 4])[0]
    height, width = struct.unpack(">HH", jpeg[at + 5:at + 9])
    return [width, height]
