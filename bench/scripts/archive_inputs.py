# Writes what bench/archive reads into the current folder, the same at every run:
#   files.zip     2,000 files of 100 MB in 40 folders, one half text, the other bytes that no compression makes smaller
#   bundle.zip    10,000 small files
#   big.csv       50 MB in 10 columns, 6 % of the cells in quotes
import random
import zipfile

MB = 1 << 20
TIME = (2024, 1, 1, 0, 0, 0)
WORDS = "sword shield potion scroll of the old mine forest wolf spider key door torch rope gold silver iron".split()


def text(source, size):
    """Lines as a game's data has them: an entry each, with numbers that differ."""
    lines = []
    left = size
    while left > 0:
        line = f"{' '.join(source.choices(WORDS, k=6))} = {source.randrange(10000)}\n"
        lines.append(line)
        left -= len(line)
    return "".join(lines)[:size].encode()


def add(archive, name, data, method):
    entry = zipfile.ZipInfo(name, TIME)
    entry.compress_type = method
    entry.external_attr = 0o644 << 16
    archive.writestr(entry, data)


def write_files(source):
    """Sizes from a few KB on, 50 KB on average. What is no smaller compressed is stored, as zip tools do."""
    weights = [source.expovariate(1) + 0.05 for _ in range(2000)]
    sizes = [int(100 * MB * weight / sum(weights)) for weight in weights]
    with zipfile.ZipFile("files.zip", "w") as archive:
        for i, size in enumerate(sizes):
            folder = f"mod{i % 40:02}"
            if i // 40 % 2:
                add(archive, f"{folder}/image{i:04}.bin", source.randbytes(size), zipfile.ZIP_STORED)
            else:
                add(archive, f"{folder}/data{i:04}.txt", text(source, size), zipfile.ZIP_DEFLATED)


def write_bundle(source):
    with zipfile.ZipFile("bundle.zip", "w") as archive:
        for i in range(10000):
            data = text(source, source.randrange(200, 2000))
            add(archive, f"folder{i % 100:02}/file{i:05}.txt", data, zipfile.ZIP_DEFLATED)


def cell(source):
    """A number or a word; 6 in 100 are in quotes, and two thirds of these have to be."""
    word = source.choice(WORDS)
    kind = source.random()
    if kind >= 0.06:
        return str(source.randrange(1000000)) if kind < 0.6 else word
    if kind < 0.02:
        return f'"{word}, {source.choice(WORDS)}"'
    if kind < 0.03:
        return f'"the ""{word}"""'
    if kind < 0.04:
        return f'"{word}\n{source.choice(WORDS)}"'
    return f'"{word}"'


def write_csv(source):
    left = 50 * MB
    with open("big.csv", "w", newline="") as file:
        while left > 0:
            row = ",".join(cell(source) for _ in range(10)) + "\n"
            file.write(row)
            left -= len(row)


write_files(random.Random(1))
write_bundle(random.Random(2))
write_csv(random.Random(3))
