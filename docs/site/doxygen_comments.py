"""Turns the plain comments of the public headers into those that Doxygen reads.

The first comment of a header describes the file. A comment above a declaration describes that
declaration, and one behind it does so as well. Code, diagrams and the fields "Threads:", "Errors:"
and "Ownership:" of a comment keep their form; all other text is a paragraph.
"""
import re

# A text with code in backticks, in which Doxygen reads no commands; what it would read is escaped.
SPECIAL = re.compile(r"(`[^`]*`)|([\\@<>#&%*_~|])")
FIELD = re.compile(r"(?P<name>Errors|Ownership|Threads): +(?=\S)")
LEAD = re.compile(r"^(?:Errors|Ownership|Results|Sizes|Threads)\.")
TAG = re.compile(r" +(\[[a-z ]+\]) {2,}")
TRAILING = re.compile(r"^(?P<code>\s*(?!class |struct )[^\s#}/].*[^\s{]) +(?P<open>//|/\*) (?P<text>.*)$")
# Doxygen does not find their scope.
STD_SPECIALIZATION = re.compile(r"^template <>\nstruct std::.*?^};\n", re.M | re.S)


# The name of a document or a header, in escaped text.
FILE = re.compile(r"(?<![\w/`\\])(?:docs/(?P<page>[\w-]+)\.md|"
                  r"(?P<header>[a-z]\w*(?:/(?:\w|\\_)+)+\.h))(?![\w`])")


def link_files(lines, header, headers):
    """The lines for Doxygen, in which names of files lead to the pages of the site."""
    root = "../" * (header.count("/") + 1)
    is_verbatim = False

    def link(found):
        name = (found["header"] or "").replace("\\", "")
        if name and name not in headers:
            return found[0]
        page = f"api/{name}.html" if name else f"{found['page']}.html"
        return f"[{found[0]}]({root}{page})"

    for line in lines:
        is_verbatim = (is_verbatim or line == "\\verbatim") and line != "\\endverbatim"
        yield line if is_verbatim else FILE.sub(link, line)


def escape(text):
    return SPECIAL.sub(lambda found: found[1] or "\\" + found[2], text)


def end_code(result):
    while not result[-1].strip():
        del result[-1]
    result += ["\\endverbatim", ""]


def format_block(lines):
    """The lines of one comment, without their comment marks, for Doxygen."""
    result, field, is_code = [], 0, False
    for number, line in enumerate(lines):
        indent = len(line) - len(line.lstrip())
        is_after_blank = number == 0 or not lines[number - 1].strip()
        if is_code and line.strip() and indent < 2:
            end_code(result)
            is_code = False
        if not is_code and result and result[-1].startswith(("- ", "  ")) and not indent:
            result.append("")
        if is_code:
            result.append(line)
        elif not line.strip():
            result.append("")
        elif (start := FIELD.match(line)):
            field = start.end()
            result += ["", f"<b>{start['name']}:</b> {escape(line[field:])}"]
        elif field and indent >= field:
            result.append(escape(line.strip()))
        elif tag := TAG.match(line):
            result.append(f"- <b>{tag[1]}</b> {escape(line[tag.end():])}")
        elif indent >= 2 and is_after_blank:
            is_code, field = True, 0
            result += ["\\verbatim", line]
        else:
            text = escape(line.strip())
            result.append("  " * bool(indent) +
                          (LEAD.sub(r"<b>\g<0></b>", text) if is_after_blank else text))
    if is_code:
        end_code(result)
    return result


def convert(text, header, headers):
    """The text of a header with comments for Doxygen. `headers` have pages on the site."""
    result, block, is_first, in_block = [], [], True, False

    def flush():
        nonlocal block, is_first
        lines = format_block(block)
        while lines and not lines[0]:
            del lines[0]
        if lines and is_first:
            lines = ["\\file", *lines]
        if lines:  # In this form, since a block of verbatim text keeps the marks of each line.
            result.extend(["/**", *(line.replace("*/", "* /")
                                     for line in link_files(lines, header, headers)), "*/"])
        is_first, block = False, []

    for line in STD_SPECIALIZATION.sub("", text).splitlines():
        stripped = line.strip()
        if in_block or (stripped.startswith("/*") and not stripped.startswith("/* --")):
            in_block = not stripped.endswith("*/")
            block.append(re.sub(r"^\s*(/\*|\*(?!/))? ?|\s*\*/$", "", line))
        elif stripped.startswith("// --") or stripped.startswith("/* --"):
            result.append("")
        elif stripped.startswith("//"):
            block.append(re.sub(r"^\s*// ?", "", line))
        else:
            if block:
                if line.startswith("#pragma GCC"):
                    block = []  # It is not of a declaration.
                flush()
            trailing = TRAILING.match(line)
            result.append(f"{trailing['code']}  ///< "
                          f"{escape(re.sub(r' *[*]/$', '', trailing['text']))}"
                          if trailing else line)
    return "\n".join(result) + "\n"
