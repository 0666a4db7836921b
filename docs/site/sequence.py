"""Draws the sequence diagrams of the pages: from the text that forges draw as well, without a program of somebody else's.

Known words, one a line:
  participant A as Name          A->>B: text        A-->>B: text (dashed)        A-xB: text (lost)
  Note over A[,B]: text          loop|alt|opt text          else text          end
"""
import html
import re

LANE, HEAD, ROW, MARGIN, LETTER = 190, 34, 34, 16, 6.7
ARROW = re.compile(r"(\w+)\s*(->>|-->>|-x)\s*(\w+)\s*:\s*(.*)")
NOTE = re.compile(r"Note over (\w+)(?:\s*,\s*(\w+))?\s*:\s*(.*)")
GROUP = re.compile(r"(loop|alt|opt)\b\s*(.*)")


class Diagram:
    def __init__(self, text):
        self.names = {}
        self.parts = []
        self.y = MARGIN + HEAD + 14
        self.groups = []
        lines = [line.strip() for line in text.strip().splitlines()]
        if not lines or lines[0] != "sequenceDiagram":
            raise ValueError("a diagram begins with 'sequenceDiagram'")
        for line in lines[1:]:
            if line and not line.startswith("%%"):
                self.take(line)
        if self.groups:
            raise ValueError("a group of a diagram has no 'end'")

    def x(self, name):
        if name not in self.names:
            self.names[name] = name
        return MARGIN + LANE * list(self.names).index(name) + LANE / 2

    def take(self, line):
        declared = re.fullmatch(r"participant (\w+)(?: as (.*))?", line)
        arrow, note, group = ARROW.fullmatch(line), NOTE.fullmatch(line), GROUP.fullmatch(line)
        if declared:
            self.names[declared[1]] = declared[2] or declared[1]
        elif arrow:
            self.arrow(*arrow.groups())
        elif note:
            self.note(note[1], note[2] or note[1], note[3])
        elif group:
            self.groups.append(self.y)
            self.label(f"{group[1]}  {group[2]}")
        elif line.startswith("else"):
            self.parts.append(f'<line class="split" x1="{MARGIN}" y1="{self.y}" x2="100%" y2="{self.y}"/>')
            self.label(line)
        elif line == "end" and self.groups:
            self.box(self.groups.pop())
        else:
            raise ValueError(f"no line of a diagram: {line}")

    def arrow(self, sender, kind, receiver, text):
        begin, end = self.x(sender), self.x(receiver)
        style = {"->>": "", "-->>": " dashed", "-x": " lost"}[kind]
        self.text(min(begin, end) + abs(begin - end) / 2, self.y + 8, text, "middle")
        if sender == receiver:
            self.parts.append(f'<path class="arrow{style}" d="M{begin},{self.y + 14} h30 v10 h-26"/>')
        else:
            tip = end - 4 if end > begin else end + 4
            self.parts.append(f'<path class="arrow{style}" d="M{begin},{self.y + 15} H{tip}"/>')
        self.y += ROW

    def note(self, first, last, text):
        left, right = sorted((self.x(first), self.x(last)))
        width = max(right - left + 60, LETTER * len(text) + 20)
        middle = (left + right) / 2
        self.parts.append(f'<rect class="note" x="{max(2, middle - width / 2)}" y="{self.y - 4}" width="{width}" height="24"/>')
        self.text(max(2 + width / 2, middle), self.y + 12, text, "middle")
        self.y += ROW

    def label(self, text):
        self.text(MARGIN + 6, self.y + 14, text, "start", "group")
        self.y += 26

    def box(self, top):
        self.parts.append(f'<rect class="box" x="{MARGIN / 2}" y="{top}" width="calc(100% - {MARGIN}px)" height="{self.y - top}"/>')
        self.y += 10

    def text(self, x, y, text, anchor, kind=""):
        self.parts.append(f'<text class="{kind}" x="{x}" y="{y}" text-anchor="{anchor}">{html.escape(text)}</text>')

    def heads(self):
        for name, shown in self.names.items():
            x = self.x(name)
            yield f'<line class="life" x1="{x}" y1="{MARGIN + HEAD}" x2="{x}" y2="{self.y}"/>'
            yield f'<rect class="head" x="{x - LANE / 2 + 14}" y="{MARGIN}" width="{LANE - 28}" height="{HEAD}" rx="4"/>'
            yield f'<text x="{x}" y="{MARGIN + HEAD / 2 + 5}" text-anchor="middle">{html.escape(shown)}</text>'

    def svg(self):
        width, height = 2 * MARGIN + LANE * len(self.names), self.y + MARGIN
        words = " ".join(re.sub(r"<[^>]*>", " ", part) for part in self.parts)
        return (f'<svg class="sequence" viewBox="0 0 {width} {height}" width="{width}" height="{height}" role="img" '
                f'aria-label="Sequence: {html.escape(" ".join(words.split()), quote=True)}">'
                '<defs><marker id="tip" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="8" markerHeight="8" '
                'orient="auto-start-reverse"><path class="tip" d="M0,0 L8,4 L0,8 z"/></marker></defs>'
                + "".join([*self.heads(), *self.parts]) + "</svg>")


def drawn(text):
    """The diagram as SVG. Throws ValueError for what is no diagram."""
    return Diagram(text).svg()
