"""What benchmarks/run makes of the times it measured: rows, a comparison with a recorded run, and a drawing.

A row is a dictionary: "ours", and where there are such "limit" (both in nanoseconds) and "peers" (nanoseconds by name).
"""
import html
import math

# A row counts as slower from this multiple of what was recorded: medians of one machine differ by less.
SLOWER = 1.10


def rows_of(medians):
    """The rows, by name, of medians by the names of benchmarks: limit/ROW, ours/ROW or alone/ROW, peer/ROW/NAME."""
    rows = {}
    for name, time in medians.items():
        kind, _, rest = name.partition("/")
        row, _, peer = rest.partition("/")
        if kind in ("ours", "alone"):
            rows.setdefault(row, {})["ours"] = time
        elif kind == "limit":
            rows.setdefault(row, {})["limit"] = time
        elif kind == "peer":
            rows.setdefault(row, {}).setdefault("peers", {})[peer] = time
    return {row: times for row, times in sorted(rows.items()) if "ours" in times}


def cost(row):
    """What a row costs: as a multiple of its limit, which makes machines comparable, else in nanoseconds."""
    return row["ours"] / row["limit"] if row.get("limit") else row["ours"]


def slower_rows(recorded, measured):
    """(row, recorded cost, cost now) of each row that became slower, the worst first. Rows of one run only are left out."""
    slower = []
    for name, row in measured.items():
        before = recorded.get(name)
        if before is None or bool(before.get("limit")) != bool(row.get("limit")) or cost(before) <= 0:
            continue
        if cost(row) > cost(before) * SLOWER:
            slower.append((name, cost(before), cost(row)))
    return sorted(slower, key=lambda entry: entry[1] / entry[2])


def table(rows, known, before):
    """The rows as a table in Markdown, in the order of `known` (row: target, title): what was wanted, what is reached, and
    what another recorded run reached, if there is one."""
    def cell(row):
        if row is None:
            return ""
        return f"{cost(row):.3g}" if row.get("limit") else f"{cost(row) / 1e3:.3g} µs"

    lines = ["| what / its limit | wanted | reached |" + (" before |" if before else "") + " others |",
             "| --- | --- | --- |" + (" --- |" if before else "") + " --- |"]
    for name in [name for name in known if name in rows]:
        target, title = known[name]
        row = rows[name]
        missed = target is not None and bool(row.get("limit")) and cost(row) > target
        others = ", ".join(f"{peer} {time / row['limit']:.3g}" for peer, time in sorted(row.get("peers", {}).items())
                           if row.get("limit"))
        wanted = f"{target:g}" if target is not None else ""
        reached = f"**{cell(row)}**" if missed else cell(row)
        lines.append(f"| {title} | {wanted} | {reached} |" + (f" {cell(before.get(name))} |" if before else "") + f" {others} |")
    return "\n".join(lines) + "\n"


def page_with(page, shown):
    """A page with what is shown between its two marks replaced."""
    begin, end = "<!-- recorded: begin -->\n", "<!-- recorded: end -->\n"
    before, found, rest = page.partition(begin)
    _, closed, after = rest.partition(end)
    if not found or not closed:
        raise ValueError("the page has no place for what was recorded")
    return before + begin + shown + end + after


def drawing(rows, titles):
    """An SVG with a group of bars for each row that has a limit: ours, and each peer, as multiples of the limit, which is a
    line. The scale is logarithmic: twice as much is as long everywhere."""
    drawn = {name: row for name, row in rows.items() if row.get("limit")}
    left, width, bar, gap = 430, 560, 12, 10
    bars = {name: [("ours", row["ours"] / row["limit"])] +
                  [(peer, time / row["limit"]) for peer, time in sorted(row.get("peers", {}).items())]
            for name, row in drawn.items()}
    values = [value for group in bars.values() for _, value in group if value > 0] + [1]
    least, most = math.log2(min(values)) - 0.5, math.log2(max(values)) + 0.5

    def x(value):
        return left + width * (math.log2(max(value, 2 ** least)) - least) / (most - least)

    parts = []
    y = 40
    for name, group in bars.items():
        title = titles.get(name, name)
        parts.append(f'<text class="what" x="{left - 10}" y="{y + 10}"><title>{html.escape(title)}</title>'
                     f'{html.escape(title if len(title) <= 66 else title[:65] + "…")}</text>')
        for who, value in group:
            kind = "ours" if who == "ours" else "peer"
            begin, end = sorted((x(1), x(value)))
            parts.append(f'<rect class="{kind}" x="{begin:.1f}" y="{y}" width="{max(end - begin, 1):.1f}" height="{bar}"/>')
            parts.append(f'<text class="value" x="{x(value) + (4 if value >= 1 else -4):.1f}" y="{y + 10}" '
                         f'text-anchor="{"start" if value >= 1 else "end"}">{value:.3g} {html.escape(who)}</text>')
            y += bar + 2
        y += gap
    height = y + 10
    style = ("text{font:11px sans-serif;fill:currentColor}.what{text-anchor:end}.ours{fill:#2a7f62}.peer{fill:#9aa5b1}"
             ".limit{stroke:#b3422e;stroke-width:1.5}")
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {left + width + 150} {height}" color="#444" role="img">',
        f"<style>{style}</style>",
        f'<text x="{x(1):.1f}" y="16" text-anchor="middle">the limit = 1; bars to the right take longer, bars to the left less</text>',
        f'<line class="limit" x1="{x(1):.1f}" y1="22" x2="{x(1):.1f}" y2="{height - 8}"/>',
        *parts, "</svg>", ""])
