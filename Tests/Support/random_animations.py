#!/usr/bin/env python3
"""Writes animations drawn by chance, and what is to be seen of them: random_animations.py KIND SEED FOLDER.

KIND is apng, webp, avif or gif; what GIFs show is also what ffmpeg makes of them. FOLDER/animation gets the file,
FOLDER/frames all its frames as R, G, B, A bytes, colours multiplied by alpha, and FOLDER/times the seconds of each, as the
file was told. Parts of the canvas, disposals, blending, holes, palettes, 16-bit pictures and delays of nothing all occur.
"""
import pathlib
import random
import struct
import subprocess
import sys
import zlib

import numpy
from PIL import Image

WIDTH, HEIGHT, COUNT = 46, 34, 14
kind, seed, folder = sys.argv[1], int(sys.argv[2]), pathlib.Path(sys.argv[3])
chance = random.Random(seed)
target = folder / "animation"


class Canvas:
    """What each frame looks like, worked out in real numbers; colours multiplied by alpha."""

    def __init__(self):
        self.canvas = numpy.zeros((HEIGHT, WIDTH, 4))
        self.frames = []

    def add(self, picture, colors, left, top, over, disposal):
        pixels = numpy.array(picture.convert("RGBA")) if colors is None else colors[numpy.array(picture)]
        pixels = pixels / 255
        pixels[..., :3] *= pixels[..., 3:]
        before = self.canvas.copy()
        area = self.canvas[top:top + picture.height, left:left + picture.width]
        area[:] = pixels + area * (1 - pixels[..., 3:]) if over else pixels
        self.frames.append(numpy.rint(self.canvas * 255).astype(numpy.uint8))
        if disposal == "clear":
            area[:] = 0
        if disposal == "restore":
            self.canvas = before


def drawn(width, height, alphas):
    """Rectangles of one colour, so that errors stand out."""
    picture = Image.new("RGBA", (width, height), color(alphas))
    for _ in range(6):
        left, top = chance.randrange(width), chance.randrange(height)
        picture.paste(color(alphas), (left, top, left + chance.randrange(1, width + 1), top + chance.randrange(1, 20)))
    return picture


def color(alphas):
    return tuple(chance.randrange(256) for _ in range(3)) + (chance.choice(alphas),)


def part(step):
    """A place on the canvas, at whole multiples of `step`; the whole of it now and then."""
    if chance.randrange(4) == 0:
        return 0, 0, WIDTH, HEIGHT
    left, top = chance.randrange(0, WIDTH - 2, step), chance.randrange(0, HEIGHT - 2, step)
    return left, top, chance.randrange(1, WIDTH - left + 1), chance.randrange(1, HEIGHT - top + 1)


def delays(unit):
    return [chance.choice([0, 1, 20, 40, 70, 100, 1000]) * unit for _ in range(COUNT)]


def chunk(name, data):
    return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))


def rows(picture, depth):
    """Rows without a filter. 16 bits repeat the byte, so that 8 bits of it are the same."""
    data, lines = picture.tobytes(), []
    size = len(data) // picture.height
    for y in range(picture.height):
        line = data[y * size:(y + 1) * size]
        lines.append(b"\0" + (bytes(byte for byte in line for _ in range(2)) if depth == 16 else line))
    return zlib.compress(b"".join(lines))


def write_apng():
    colors = None
    depth, mode = chance.choice([(8, "RGBA"), (8, "RGBA"), (8, "RGB"), (8, "P"), (16, "RGBA")])
    file = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", WIDTH, HEIGHT, depth,
                                                              {"RGBA": 6, "RGB": 2, "P": 3}[mode], 0, 0, 0))
    file += chunk(b"acTL", struct.pack(">II", COUNT, chance.choice([0, 1, 3])))
    if mode == "P":
        palette = bytes(chance.randrange(256) for _ in range(48))
        alphas = bytes(chance.choice([0, 120, 255]) for _ in range(16))
        colors = numpy.array([[*palette[3 * i:3 * i + 3], alphas[i]] for i in range(16)])
        file += chunk(b"PLTE", palette) + chunk(b"tRNS", alphas)
    times, sequence, shown = delays(1), 0, Canvas()
    hidden = chance.randrange(3) == 0
    if hidden:  # for programs that show no animations
        file += chunk(b"IDAT", rows(Image.new(mode, (WIDTH, HEIGHT)), depth))
    for i, time in enumerate(times):
        left, top, width, height = (0, 0, WIDTH, HEIGHT) if i == 0 else part(1)
        if mode == "P":
            picture = Image.new("P", (width, height))
            picture.putdata([chance.randrange(16) for _ in range(width * height)])
        else:
            picture = drawn(width, height, [0, 90, 255, 255]).convert(mode)
        disposal, over = chance.randrange(3), chance.randrange(2)
        file += chunk(b"fcTL", struct.pack(">IIIIIHHBB", sequence, width, height, left, top, time, 1000, disposal,
                                           over))
        shown.add(picture, colors, left, top, over, "keep clear restore".split()[disposal])
        sequence += 1
        data = rows(picture, depth)
        if i == 0 and not hidden:
            file += chunk(b"IDAT", data[:9]) + chunk(b"IDAT", data[9:])
        else:
            for piece in (data[:9], data[9:]):
                file += chunk(b"fdAT", struct.pack(">I", sequence) + piece)
                sequence += 1
    target.write_bytes(file + chunk(b"IEND", b""))
    return times, shown.frames


def gif_blocks(indexes):
    """Codes of nine bits, started afresh before they would grow."""
    codes, bits, count = [], 0, 0
    for i, index in enumerate(indexes):
        codes += [256, index] if i % 200 == 0 else [index]
    data = bytearray()
    for code in [*codes, 257]:
        bits |= code << count
        count += 9
        while count >= 8:
            data.append(bits & 255)
            bits, count = bits >> 8, count - 8
    data.append(bits)
    return b"\x08" + b"".join(bytes([len(data[i:i + 255])]) + data[i:i + 255]
                              for i in range(0, len(data), 255)) + b"\0"


def write_gif():
    def palette():
        return bytes(chance.randrange(256) for _ in range(3 * 256))

    common, times, shown = palette(), [], Canvas()
    file = b"GIF89a" + struct.pack("<HHBBB", WIDTH, HEIGHT, 0xF7, 0, 0) + common
    file += b"!\xff\x0bNETSCAPE2.0\x03\x01" + struct.pack("<H", chance.choice([0, 1, 3])) + b"\0"
    for i in range(COUNT):
        left, top, width, height = (0, 0, WIDTH, HEIGHT) if i == 0 else part(1)
        picture = Image.new("P", (width, height))
        picture.putdata([chance.randrange(16) for _ in range(width * height)])
        own = palette() if chance.randrange(3) == 0 else None
        hole = chance.randrange(16)
        colors = numpy.array([[*(own or common)[3 * k:3 * k + 3], 0 if k == hole else 255] for k in range(256)])
        disposal = chance.choice([0, 1, 2, 3])
        times.append(chance.choice([0, 10, 20, 40, 70, 100, 1000]))
        file += b"!\xf9\x04" + struct.pack("<BHBB", disposal << 2 | 1, times[-1] // 10, hole, 0)
        file += b"," + struct.pack("<HHHHB", left, top, width, height, 0x87 if own else 0) + (own or b"")
        file += gif_blocks(picture.getdata())
        shown.add(picture, colors, left, top, True, "keep keep clear restore".split()[disposal])
    target.write_bytes(file + b";")
    return times, shown.frames


def held_against_ffmpeg(frames):
    command = ["ffmpeg", "-v", "error", "-i", target, "-fps_mode", "passthrough", "-pix_fmt", "rgba", "-f", "rawvideo",
               "-"]
    decoded = numpy.frombuffer(subprocess.run(command, check=True, capture_output=True).stdout, numpy.uint8)
    decoded = decoded.reshape(len(frames), HEIGHT, WIDTH, 4).copy()
    decoded[decoded[..., 3] == 0] = 0
    assert (decoded == numpy.array(frames)).all(), "ffmpeg shows other frames"


def write_webp():
    times, arguments, shown = delays(1), [], Canvas()
    for i, time in enumerate(times):
        left, top, width, height = (0, 0, WIDTH, HEIGHT) if i == 0 else part(2)
        picture, clear, over = drawn(width, height, [0, 90, 255, 255]), chance.randrange(2), chance.randrange(2)
        picture.save(folder / f"{i}.webp", lossless=True, exact=True)
        arguments += ["-frame", str(folder / f"{i}.webp"), f"+{time}+{left}+{top}+{clear}{'+b' if over else '-b'}"]
        shown.add(picture, None, left, top, over, "clear" if clear else "keep")
    subprocess.run(["webpmux", *arguments, "-loop", str(chance.choice([0, 1, 3])), "-o", target],
                   check=True, capture_output=True)
    return times, shown.frames


def write_avif():
    shown = Canvas()
    for i in range(COUNT):
        picture = drawn(WIDTH, HEIGHT, [0, 90, 255, 255])
        picture.save(folder / f"{i}.png")
        shown.add(picture, None, 0, 0, False, "keep")
    subprocess.run(["avifenc", "--lossless", "-s", "6", "--fps", "20",
                    *[folder / f"{i}.png" for i in range(COUNT)], "-o", folder / "animation.avif"],
                   check=True, capture_output=True)
    (folder / "animation.avif").rename(target)
    return [50] * COUNT, shown.frames


times, frames = {"apng": write_apng, "webp": write_webp, "avif": write_avif, "gif": write_gif}[kind]()
if kind == "gif":
    held_against_ffmpeg(frames)
(folder / "frames").write_bytes(b"".join(frame.tobytes() for frame in frames))
(folder / "times").write_text("\n".join(str(time / 1000) for time in times))
