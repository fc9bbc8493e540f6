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
# In a section of their own, 3tavo, which man looks through as section 3: others may have a reset(3), too. Names of classes
# and members are left out; their pages would be called like anything.
pages = {}
for group in xml.parse(tags).getroot().iterfind("compound[@kind='group']"):
    pages[group.findtext("name")] = [each.findtext("name") for each in group.iterfind("member[@kind='function']")]
for page, functions in pages.items():
    with open(os.path.join(made, page + ".3")) as file:
        text = file.read()
    # doxygen writes the day of the build, which would make two builds differ, and the title twice into NAME.
    text = re.sub(r'^(\.TH "[^"]*") 3 "[^"]*"', r'\1 3tavo ""', text, count=1, flags=re.M)
    text = re.sub(r"(^\.SH NAME\n.*\n)\.PP\n \\- .*\n", r"\1", text, count=1, flags=re.M)
    # A line that begins with a quote would be a macro; and an argument of a macro is read twice, escapes included.
    text = re.sub(r"^'", r"\\&'", text, flags=re.M).replace(r"\\", r"\e")
    with open(os.path.join(out, page + ".3tavo"), "w") as file:
        file.write(text)
    if page.startswith("tavo_service_"):
        functions = ["tavo::" + function for function in functions]
    elif page not in ("tavo_c", "tavo_flash", "tavo_bridge", "tavo_neuron"):
        continue  # no operations
    for function in functions:
        with open(os.path.join(out, function + ".3tavo"), "w") as file:
            file.write(f".so man3/{page}.3tavo\n")
