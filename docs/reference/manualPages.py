"""The manual pages of the operations: a page for each header, and a name for each of its functions that leads there.

usage: manualPages.py TAGFILE MADE-BY-DOXYGEN OUT
"""

import os
import re
import shutil
import sys
import xml.etree.ElementTree as xml

tags, made, out = sys.argv[1:]
shutil.rmtree(out, ignore_errors=True)
os.makedirs(out)
# Names of classes and members may be those of others' pages, too; the pages of the headers are called tavo_*.
pages = {}
for group in xml.parse(tags).getroot().iterfind("compound[@kind='group']"):
    pages[group.findtext("name")] = [each.findtext("name") for each in group.iterfind("member[@kind='function']")]
for page, functions in pages.items():
    with open(os.path.join(made, page + ".3")) as file:
        text = file.read()
    # doxygen writes the day of the build, which would make two builds differ.
    text = re.sub(r'^(\.TH "[^"]*" 3) "[^"]*"', r'\1 ""', text, count=1, flags=re.M)
    with open(os.path.join(out, page + ".3"), "w") as file:
        file.write(text)
    if page.startswith("tavo_service_"):
        functions = ["tavo::" + function for function in functions]
    elif page not in ("tavo_c", "tavo_flash", "tavo_bridge", "tavo_neuron"):
        continue  # no operations
    for function in functions:
        with open(os.path.join(out, function + ".3"), "w") as file:
            file.write(f".so man3/{page}.3\n")
