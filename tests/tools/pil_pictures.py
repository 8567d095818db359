"""The tests' independent reader and writer of pictures: Pillow.

    pil_pictures.py write RAW MODE WIDTH HEIGHT OUT [key=value ...]
        makes a picture of the raw samples in RAW (Pillow's own layout of
        MODE: L, LA, RGB, RGBA, or I;16 for 16-bit grey, little endian) and
        saves it as OUT, whose name gives the format; quality=N,
        compression=NAME, progressive=1 and pages=N (copies of the picture in one file)
        go to the writer.
    pil_pictures.py read IN RAW
        prints "MODE WIDTH HEIGHT PAGES" of IN's first page and writes its
        samples to RAW: 8-bit modes as they are, 16-bit grey as little
        endian 16-bit words whatever Pillow calls the mode.
"""
import struct
import sys

from PIL import Image


def write(raw, mode, width, height, out, *options):
    with open(raw, "rb") as f:
        picture = Image.frombytes(mode, (int(width), int(height)), f.read())
    settings = {}
    for option in options:
        key, value = option.split("=", 1)
        settings[key] = int(value) if value.isdigit() else value
    pages = settings.pop("pages", 1)
    if pages > 1:
        settings["save_all"] = True
        settings["append_images"] = [picture.copy() for _ in range(pages - 1)]
    picture.save(out, **settings)


def read(path, raw):
    picture = Image.open(path)
    pages = getattr(picture, "n_frames", 1)
    mode = picture.mode
    if mode.startswith("I"):
        values = list(picture.getdata())
        data = struct.pack("<%dH" % len(values), *values)
        mode = "I;16"
    else:
        data = picture.tobytes()
    with open(raw, "wb") as f:
        f.write(data)
    print(mode, picture.width, picture.height, pages)


if __name__ == "__main__":
    {"write": write, "read": read}[sys.argv[1]](*sys.argv[2:])
