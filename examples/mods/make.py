#!/usr/bin/env python3
# Makes the archives beside it, the same bytes at every run.
import os
import zipfile


def make(name, files):
    with zipfile.ZipFile(name, "w") as archive:
        for path, contents in files.items():
            entry = zipfile.ZipInfo(path, (2024, 6, 1, 12, 0, 0))
            entry.compress_type = zipfile.ZIP_DEFLATED if path.endswith(".txt") else zipfile.ZIP_STORED
            entry.external_attr = 0o644 << 16
            archive.writestr(entry, contents)


def icon(shade):
    """A picture of 16 x 16 in 24 bits, as Windows bitmaps have it."""
    header = b"BM" + (54 + 768).to_bytes(4, "little") + bytes(4) + (54).to_bytes(4, "little")
    info = b"".join(n.to_bytes(4, "little") for n in (40, 16, 16)) + b"\x01\x00\x18\x00" + bytes(24)
    return header + info + bytes((x * 16 + y * shade) % 256 for y in range(16) for x in range(16) for _ in range(3))


os.chdir(os.path.dirname(os.path.abspath(__file__)))

make("10_basics.zip", {
    "readme.txt": "What every adventurer starts with.\n",
    "items.csv": "id,name,price\ntorch,Torch,5\nrope,\"Rope, 15 m\",8\nsword,Short sword,60\n",
    "images/icon.bmp": icon(1),
})

# Columns in another order and one more, Windows' line ends, and a byte order mark, as spreadsheets write them.
make("20_old_mine.zip", {
    "readme.txt": "The Old Mine: a new place, and what is found there.\n",
    "items.csv": "\ufeffprice,id,name,note\r\n"
                 "3,torch,Miner's torch,\"burns longer\nunder the ground\"\r\n"
                 "240,pick,\"The \"\"Old\"\" Pick\",\r\n"
                 "a lot,crystal,Crystal,\r\n"
                 "12,lamp,Lampe à huile,\r\n",
    "images/icon.bmp": icon(5),
})

# A download that went wrong: one byte of the table is another one.
make("30_harbour.zip", {
    "readme.txt": "The Harbour.\n",
    "items.csv": "id,name,price\nboat,Boat,900\n",
    "images/icon.bmp": icon(9),
})
with open("30_harbour.zip", "rb") as file:
    archive = file.read()
with open("30_harbour.zip", "wb") as file:
    file.write(archive.replace(b"boat,Boat,900", b"boat,Boat,100"))
