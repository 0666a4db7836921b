"""The reference: one page a public header, made of what Doxygen reads out of it."""
import html
import re
import subprocess
import sys
import xml.etree.ElementTree as tree

PLAIN = {"para": "p", "itemizedlist": "ul", "orderedlist": "ol", "listitem": "li", "computeroutput": "code", "bold": "strong",
         "emphasis": "em", "preformatted": "pre", "blockquote": "blockquote"}
KINDS = {"define": "Macros", "typedef": "Types", "enum": "Enumerations", "var": "Constants and variables", "func": "Functions"}


def run_doxygen(root, output):
    """Doxygen's reading of the headers as XML, with the settings that the check of the headers has."""
    settings = (root / "docs" / "Doxyfile").read_text(encoding="utf-8") + f"""
OUTPUT_DIRECTORY = {output}
GENERATE_HTML = NO
GENERATE_XML = YES
XML_PROGRAMLISTING = NO
"""
    if subprocess.run(["doxygen", "-"], input=settings, text=True, cwd=root).returncode != 0:
        sys.exit("site: the headers are not documented as they have to be")
    return output / "xml"


def text_of(node):
    return "".join(node.itertext()) if node is not None else ""


class Reference:
    def __init__(self, xml):
        self.compounds = {}
        for path in sorted(xml.glob("*.xml")):
            if path.name in ("index.xml", "Doxyfile.xml"):
                continue
            for compound in tree.parse(path).getroot().iter("compounddef"):
                self.compounds[compound.get("id")] = compound
        self.headers = sorted((c for c in self.compounds.values() if c.get("kind") == "file"), key=self.name_of_header)
        self.places = {}
        for header in self.headers:
            self.place(header, self.page_of(header))

    @staticmethod
    def name(compound):
        return text_of(compound.find("compoundname"))

    @staticmethod
    def name_of_header(header):
        """Its path as a host includes it, without the first folder: "c/tksinterface.h"."""
        return header.find("location").get("file").removeprefix("include/").removeprefix("tksinterface/")

    def page_of(self, header):
        """Files whose names differ only in their case would be one on some systems: the header of everything has a name of its own."""
        name = self.name_of_header(header)
        if name == "tksinterface.h":
            return "reference-everything.html"
        return "reference-" + re.sub(r"[^\w]+", "-", name.removesuffix(".h")).lower() + ".html"

    def classes_of(self, header):
        return [self.compounds[inner.get("refid")] for inner in header.findall("innerclass")
                if inner.get("prot") != "private" and inner.get("refid") in self.compounds]

    def namespaces_of(self, header):
        return [self.compounds[inner.get("refid")] for inner in header.findall("innernamespace") if inner.get("refid") in self.compounds]

    def place(self, compound, page):
        """Where what is described stands, for links to it."""
        self.places[compound.get("id")] = f"{page}#{compound.get('id')}" if compound.get("kind") != "file" else page
        for member in self.members(compound):
            self.places.setdefault(member.get("id"), f"{page}#{member.get('id')}")
        for inner in self.classes_of(compound) if compound.get("kind") in ("file", "class", "struct") else ():
            self.place(inner, page)

    @staticmethod
    def members(compound):
        return [member for section in compound.findall("sectiondef") for member in section.findall("memberdef")
                if member.get("prot") != "private"]

    # ------------------------------------------------------------------------------------------------------- descriptions

    def words(self, node):
        """A description as HTML."""
        out = [html.escape(node.text or "")]
        for child in node:
            out.append(self.word(child))
            out.append(html.escape(child.tail or ""))
        return "".join(out)

    def word(self, node):
        if node.tag == "ref":
            place = self.places.get(node.get("refid"))
            return f'<a href="{place}">{self.words(node)}</a>' if place else self.words(node)
        if node.tag == "ulink":
            return f'<a href="{html.escape(node.get("url"))}">{self.words(node)}</a>'
        if node.tag in ("verbatim", "programlisting"):
            return f"<pre>{self.words(node)}</pre>"
        if node.tag == "codeline":
            return self.words(node) + "\n"
        if node.tag == "sp":
            return " "
        if node.tag == "linebreak":
            return "<br>"
        if node.tag == "parameterlist":
            return "<dl>" + "".join(self.parameter(item) for item in node.findall("parameteritem")) + "</dl>"
        if node.tag == "simplesect":
            return f'<p><strong>{node.get("kind").capitalize()}:</strong></p>{self.words(node)}'
        name = PLAIN.get(node.tag)
        return f"<{name}>{self.words(node)}</{name}>" if name else self.words(node)

    def parameter(self, item):
        names = ", ".join(f"<code>{html.escape(text_of(name))}</code>" for name in item.iter("parametername"))
        return f'<dt>{names}</dt><dd>{self.words(item.find("parameterdescription"))}</dd>'

    def description(self, node):
        return "".join(self.words(part) for tag in ("briefdescription", "detaileddescription")
                       for part in [node.find(tag)] if part is not None)

    # ------------------------------------------------------------------------------------------------------------- pages

    def declaration(self, member):
        kind = member.get("kind")
        name = text_of(member.find("name"))
        if kind == "define":
            parameters = [text_of(parameter.find("defname")) for parameter in member.findall("param")]
            return f"#define {name}" + (f"({', '.join(parameters)})" if parameters else "")
        if kind == "enum":
            return f"enum {name}"
        definition = text_of(member.find("definition")) + text_of(member.find("argsstring"))
        template = member.find("templateparamlist")
        if template is not None:
            parameters = ", ".join(" ".join(text_of(part) for part in parameter if part.tag in ("type", "declname"))
                                   for parameter in template.findall("param"))
            definition = f"template <{parameters}> {definition}"
        initial = text_of(member.find("initializer"))
        return definition + (f" {initial}" if initial and len(initial) < 60 and kind == "variable" else "")

    def member(self, member):
        out = [f'<section class="member" id="{member.get("id")}">',
               f'<h4><code>{html.escape(self.declaration(member))}</code></h4>', self.description(member)]
        values = member.findall("enumvalue")
        if values:
            out.append("<dl>")
            for value in values:
                shown = text_of(value.find("name")) + " " + text_of(value.find("initializer"))
                out.append(f"<dt><code>{html.escape(shown.strip())}</code></dt><dd>{self.description(value)}</dd>")
            out.append("</dl>")
        return "".join([*out, "</section>"])

    def compound(self, compound, level=2):
        out = [f'<h{level} id="{compound.get("id")}">{html.escape(compound.get("kind"))} {html.escape(self.name(compound))}</h{level}>',
               self.description(compound)]
        out += [self.member(member) for member in self.members(compound)]
        out += [self.compound(inner, min(level + 1, 4)) for inner in self.classes_of(compound)]
        return "".join(out)

    def header(self, header):
        """(title, HTML, [(anchor, name)]) of a header's page."""
        name = self.name_of_header(header)
        out = [f"<h1>{html.escape(name)}</h1><pre>#include &lt;tksinterface/{html.escape(name)}&gt;</pre>", self.description(header)]
        contents = []
        nested = {inner.get("refid") for compound in self.compounds.values() if compound.get("kind") in ("class", "struct")
                  for inner in compound.findall("innerclass")}
        for compound in self.classes_of(header):
            if compound.get("id") not in nested:
                out.append(self.compound(compound))
                contents.append((compound.get("id"), self.name(compound)))
        for kind, title in KINDS.items():
            found = [member for section in header.findall("sectiondef") if section.get("kind") == kind
                     for member in section.findall("memberdef")]
            if found:
                out.append(f'<h2 id="{kind}">{title}</h2>' + "".join(map(self.member, found)))
                contents.append((kind, title))
        return name, "".join(out), contents
