#!/usr/bin/env python3
"""Whether what is filled into a text is filled into its translations as well: translations_test.py FILE.po..."""
import re
import sys

bad = []
for path in sys.argv[1:]:
    for entry in open(path, encoding="utf-8").read().split("\n\n")[1:]:
        texts = re.findall(r'^msg(id|id_plural|str|str\[\d\]) "(.*)"$', entry, re.MULTILINE)
        places = {text.count("{}") for _, text in texts}
        if len(places) > 1 or any(kind.startswith("str") and not text for kind, text in texts):
            bad.append(f"{path}: {texts}")
print("\n".join(bad))
sys.exit(1 if bad else 0)
