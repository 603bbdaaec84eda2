#!/usr/bin/python3
"""Writes every ```cpp block of a Markdown file into one C++ program: each block's #include
lines go to the top, the rest becomes the body of a function of its own, and main() runs the
blocks in order, failing when one throws."""
import re
import sys

markdown, output = sys.argv[1], sys.argv[2]
blocks = re.findall(r"^```cpp\n(.*?)^```", open(markdown, encoding="utf-8").read(), re.S | re.M)
if not blocks:
    sys.exit(f"{markdown}: no cpp blocks")
includes, functions = ["#include <cstdio>", "#include <exception>"], []
for number, block in enumerate(blocks, 1):
    body = []
    for line in block.splitlines():
        if line.startswith("#include"):
            if line not in includes:
                includes.append(line)
        else:
            body.append("    " + line if line else "")
    functions.append(f"static void readmeBlock{number}() {{\n" + "\n".join(body) + "\n}\n")
calls = "\n".join(
    f'    try {{ readmeBlock{n}(); }} catch (const std::exception& e) {{ std::printf("block {n}: %s\\n", e.what()); return 1; }}'
    for n in range(1, len(blocks) + 1))
with open(output, "w", encoding="utf-8") as out:
    out.write("\n".join(includes) + "\n\n" + "\n".join(functions) + f"\nint main() {{\n{calls}\n    return 0;\n}}\n")
print(f"{len(blocks)} blocks")
