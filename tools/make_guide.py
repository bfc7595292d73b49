#!/usr/bin/env python3
"""Turns docs/user-guide.md into the HTML user guide the setup program installs.

make_guide.py GUIDE.md OUT_FOLDER UNINSTALL_LIST

OUT_FOLDER receives user-guide.html and the pictures it shows; UNINSTALL_LIST receives one
NSIS Delete line per file, so that an uninstall removes exactly the files it put down.
A bookkeeper opens the guide with a double click: HTML, not Markdown, which Windows has no
program for.
"""
import html
import pathlib
import re
import shutil
import sys

try:
    import markdown
except ImportError:
    sys.exit("make_guide.py: Python-Markdown is missing (Debian package python3-markdown; "
             "bash scripts/setup.sh installs it)")

PAGE = """<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<title>{title}</title>
<style>
body {{ font-family: Segoe UI, Tahoma, sans-serif; max-width: 52em; margin: 2em auto;
       padding: 0 1em; line-height: 1.45; color: #222; }}
img {{ max-width: 100%; border: 1px solid #ccc; }}
table {{ border-collapse: collapse; }}
th, td {{ border: 1px solid #bbb; padding: .3em .6em; vertical-align: top; text-align: left; }}
code {{ background: #f3f3f3; padding: 0 .2em; }}
</style></head>
<body>
{body}
</body></html>
"""


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    source, out, uninstall = (pathlib.Path(a) for a in sys.argv[1:])
    text = source.read_text(encoding="utf-8")
    title = re.search(r"^# (.+)$", text, re.M)
    body = markdown.markdown(text, extensions=["tables", "toc", "sane_lists"])

    if out.exists():
        shutil.rmtree(out)
    out.mkdir(parents=True)
    files = ["user-guide.html"]
    for picture in sorted(set(re.findall(r'<img[^>]* src="([^"/:]+\.png)"', body))):
        found = source.parent / picture
        if not found.is_file():
            sys.exit(f"make_guide.py: {source} shows {picture}, which is not in {source.parent}")
        shutil.copyfile(found, out / picture)
        files.append(picture)
    page = PAGE.format(title=html.escape(title.group(1) if title else "User guide"), body=body)
    (out / "user-guide.html").write_text(page, encoding="utf-8")
    uninstall.write_text("".join(f'Delete "$INSTDIR\\Guide\\{name}"\n' for name in files),
                         encoding="utf-8")


if __name__ == "__main__":
    main()
