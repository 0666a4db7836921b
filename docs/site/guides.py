"""The hand-written pages: Markdown to the site's HTML, links to each other's pages, headings for search and contents."""
import base64
import html
import pathlib
import re
import sys

import markdown

import sequence

FENCE = re.compile(r"^```mermaid\n(.*?)^```$", re.MULTILINE | re.DOTALL)
TITLE = re.compile(r"^# (.+)$", re.MULTILINE)
LINK = re.compile(r'(<a href=")([^"#:]*?)(#[^"]*)?(")')
DRAWING = re.compile(r'(<img alt="[^"]*" src=")([^":]+\.svg)"')
SHOWN = re.compile(r"^<!-- shown: (\w+)( .*?)? -->$", re.MULTILINE)
COMMENT = re.compile(r"<!--.*?-->\n?", re.DOTALL)


def anchor(text, separator="-"):
    """Names of headings as forges make them, so that a link works in both places."""
    return re.sub(r"[^\w\- ]", "", re.sub(r"<[^>]*>", "", text).lower()).strip().replace(" ", separator)


def inside(drawing):
    """The address of a drawing that needs no file."""
    return "data:image/svg+xml;base64," + base64.b64encode(drawing.encode()).decode()


class Guide:
    def __init__(self, path, name):
        self.path = path
        self.name = name
        self.text = path.read_text(encoding="utf-8")
        found = TITLE.search(self.text)
        self.title = re.sub(r"`", "", found[1]) if found else path.stem

    def render(self, address_of, run=None):
        """The page's HTML. address_of(path) gives the address of what a link names, seen from this page, or nothing. run(program,
        arguments) gives what a tool says where the page has "<!-- shown: PROGRAM ARGUMENTS -->"; without it nothing is shown."""
        diagrams = []

        def keep(drawing):
            diagrams.append(drawing)
            return f"\n<div>diagram {len(diagrams) - 1}</div>\n"

        def show(found):
            said = run(found[1], (found[2] or "").split())
            if said.startswith("<svg"):
                return keep(f'<img alt="What {html.escape(found[0][12:-4])} draws" src="{inside(said)}">')
            return keep(f'<pre class="terminal"><b>$ {html.escape(found[0][12:-4])}</b>\n{html.escape(said)}</pre>')

        text = SHOWN.sub(show, self.text) if run else self.text
        text = FENCE.sub(lambda found: keep(sequence.drawn(found[1])), COMMENT.sub("", text))
        converter = markdown.Markdown(
            extensions=["tables", "fenced_code", "codehilite", "toc", "sane_lists"],
            extension_configs={"codehilite": {"guess_lang": False}, "toc": {"slugify": anchor, "toc_depth": "2-3"}})
        body = converter.convert(text)
        for number, drawing in enumerate(diagrams):
            body = body.replace(f"<div>diagram {number}</div>", f'<div class="scrolls">{drawing}</div>')
        body = body.replace("<table>", '<div class="scrolls"><table>').replace("</table>", "</table></div>")
        return self.linked(DRAWING.sub(self.with_drawing, body), address_of), converter.toc_tokens

    def with_drawing(self, found):
        """A drawing that stands beside the page, in the page itself."""
        drawing = self.path.parent / html.unescape(found[2])
        if not drawing.is_file():
            raise ValueError(f"there is no drawing {found[2]}")
        return found[1] + inside(drawing.read_text(encoding="utf-8")) + '"'

    def linked(self, body, address_of):
        def follow(found):
            if not found[2]:
                return found[0]
            address = address_of((self.path.parent / html.unescape(found[2])).resolve())
            return found[1] + (address or found[2]) + (found[3] or "") + found[4]

        return LINK.sub(follow, body)


def read_navigation(path, root):
    """[(section, [Guide])]: as navigation.txt has them; pages that it does not name come under "More"."""
    sections, named = [], set()
    for line in path.read_text(encoding="utf-8").splitlines():
        line = line.strip()
        if line.startswith("# "):
            sections.append((line[2:], []))
        elif line:
            page = root / line
            if page in named:
                sys.exit(f"site: {path.name} names {line} twice")
            named.add(page)
            sections[-1][1].append(Guide(page, name_of(page, root)))
    others = sorted(page for page in [*(root / "docs").glob("*.md"), *(root / "docs" / "decisions").glob("*.md")]
                    if page not in named and page.name != "README.md")
    further = [page for page in others if page.parent.name != "decisions"]
    if further:
        sections.append(("More", [Guide(page, name_of(page, root)) for page in further]))
    sections.append(("Decisions", [Guide(page, name_of(page, root)) for page in
                                   [root / "docs" / "decisions" / "README.md", *(page for page in others if page not in further)]]))
    return sections


def name_of(page, root):
    """The page's file in the site."""
    relative = page.relative_to(root)
    if relative.name == "README.md" and relative.parent == pathlib.Path("."):
        return "overview.html"
    parts = list(relative.with_suffix("").parts)
    parts = parts[1:] if parts[0] == "docs" else ["project", *parts]
    return "-".join(parts).lower() + ".html"
