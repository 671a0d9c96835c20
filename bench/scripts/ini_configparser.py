# The same work with configparser, which does not keep the comments.
import configparser

sections = ["section%04d" % s for s in range(2000)]
keys = ["key%02d" % k for k in range(20)]

settings = configparser.RawConfigParser(delimiters=("=",))
settings.optionxform = str
with open("settings.ini", encoding="utf-8") as file:
    settings.read_file(file)


def read_real(section, key):
    try:
        return settings.getfloat(section, key)
    except ValueError:
        return 0.0


total = 0.0
for section in sections:
    for key in keys:
        total += read_real(section, key)
for s, section in enumerate(sections, 1):
    for k, key in enumerate(keys, 1):
        settings.set(section, key, "%.6f" % (s + k / 32))
last = read_real(sections[-1], keys[-1])
with open("settings.configparser", "w", encoding="utf-8") as file:
    settings.write(file)
print("%.6f %.6f" % (total, last))
