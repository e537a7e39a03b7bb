#!/usr/bin/env python3
"""Filter a Wine or ReactOS export definition file (one line an export) down to
the names exported on x86 Windows XP (0x501).

Usage:
  filter_exports.py EXPORTS_FILE --path REPO_PATH --commit SHA [-o OUT] [--target 0x501]

Rules (per line; blank lines and lines starting with ';' or '#' are comments):
  * keep when there is no -version= flag, or a version range includes the target
    (forms: 0x501, 0x501+, 0x501-0x502, comma-separated lists of those);
  * skip -noname entries and -arch= entries whose arch list excludes i386/x86/win32;
  * 'stub' entries are kept under the same rules (a stub still exports the name);
  * skip entries whose trailing comment says the name is missing in XP
    (those are reported on stderr as "dropped (comment): NAME").
Output: a header line, then sorted unique names, one per line. (The lists in
tests/xp-exports/ carry a longer header, written by hand: source, commit, licence
and known limits.)
"""
import argparse
import re
import sys

X86_ARCHES = {"i386", "x86", "win32"}
MISSING_XP = re.compile(r"\b(missing|absent|not\s+present|not)\s+(in|on|from)\s+(windows\s+|win\s*)?xp\b", re.I)


def version_ok(versions, target):
    for part in versions.split(","):
        part = part.strip()
        if not part:
            continue
        if part.endswith("+"):
            if target >= int(part[:-1], 16):
                return True
        elif "-" in part:
            lo, hi = part.split("-", 1)
            if int(lo, 16) <= target <= int(hi, 16):
                return True
        elif int(part, 16) == target:
            return True
    return False


def arch_ok(arches):
    items = [a.strip().lower() for a in arches.split(",") if a.strip()]
    neg = [a[1:] for a in items if a.startswith("!")]
    pos = [a for a in items if not a.startswith("!")]
    if neg and any(a in X86_ARCHES for a in neg):
        return False
    if pos:
        return any(a in X86_ARCHES for a in pos)
    return True


def parse(text, target):
    kept, dropped_comment, skipped = set(), [], []
    for raw in text.splitlines():
        line = raw.strip()
        if not line or line.startswith(";") or line.startswith("#"):
            continue
        # split off a trailing comment (';' or '#')
        m = re.search(r"\s[;#]", line)
        comment = line[m.start():].strip() if m else ""
        body = line[:m.start()] if m else line
        toks = body.split()
        if len(toks) < 3:
            continue
        # toks[0] = ordinal ('@' or number), toks[1] = type (stdcall, cdecl, varargs, stub, extern, ...)
        i = 2
        flags = []
        while i < len(toks) and toks[i].startswith("-"):
            flags.append(toks[i])
            i += 1
        if i >= len(toks):
            continue
        name = toks[i].split("(", 1)[0]
        if not name:
            continue
        ok = True
        for f in flags:
            if f == "-noname":
                ok = False
            elif f.startswith("-version="):
                if not version_ok(f.split("=", 1)[1], target):
                    ok = False
            elif f.startswith("-arch="):
                if not arch_ok(f.split("=", 1)[1]):
                    ok = False
        if not ok:
            skipped.append(name)
            continue
        if comment and MISSING_XP.search(comment):
            dropped_comment.append(name)
            continue
        kept.add(name)
    # a name kept by one line stays kept even if another line (e.g. a 0x600+ duplicate) was skipped
    return kept, dropped_comment, skipped


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("exports")
    ap.add_argument("--path", required=True, help="path of the file inside the ReactOS repository")
    ap.add_argument("--commit", required=True)
    ap.add_argument("--target", default="0x501")
    ap.add_argument("-o", "--out")
    a = ap.parse_args()
    with open(a.exports, encoding="utf-8") as fh:
        text = fh.read()
    kept, dropped, _ = parse(text, int(a.target, 16))
    kept -= set(dropped)  # a name flagged "missing in XP" anywhere is dropped
    lines = ["# XP (%s) exports from ReactOS %s at commit %s" % (a.target, a.path, a.commit)]
    lines += sorted(kept)
    out = "\n".join(lines) + "\n"
    if a.out:
        with open(a.out, "w", encoding="utf-8") as fh:
            fh.write(out)
    else:
        sys.stdout.write(out)
    for n in dropped:
        print("dropped (comment): %s" % n, file=sys.stderr)
    print("kept: %d" % len(kept), file=sys.stderr)


if __name__ == "__main__":
    main()
