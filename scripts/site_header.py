"""Makes the page of the C interface from the public header: doxygen reads the header, this writes reStructuredText."""

import pathlib
import re
import subprocess
import xml.etree.ElementTree

HEADER = "include/velto/audio_handler.h"
SECTION = re.compile(r"/\* ---- (.+?) -+ \*/")
ASSERTIONS = "/* ---- Layout assertions"
# A slot of the table. doxygen checks the parameters of functions, but not those of pointers to functions.
SLOT = re.compile(r"^(    \w+ )\(\*(\w+)\)\(", re.M)
EXPORT = re.compile(r"#ifndef VELTO_API\n.*?#endif\n", re.S)


class Failure(RuntimeError):
    pass


def readable_by_doxygen(header):
    """The header's text without the layout assertions, its slots as functions. Lines keep their numbers."""
    text = header.partition(ASSERTIONS)[0] + "#endif\n"
    text = EXPORT.sub(lambda block: "\n" * block[0].count("\n"), text).replace("VELTO_API ", "")
    return SLOT.sub(r"\1\2(", text)


def run_doxygen(root, work):
    """Returns the folder of the XML files."""
    folder = work / "doxygen"
    source = folder / HEADER
    source.parent.mkdir(parents=True)
    source.write_text(readable_by_doxygen((root / HEADER).read_text("utf-8")), "utf-8")
    (folder / "Doxyfile").write_text((root / "docs" / "site" / "Doxyfile").read_text("utf-8") +
                                     f"INPUT = {HEADER}\nOUTPUT_DIRECTORY = .\n", "utf-8")
    result = subprocess.run(["doxygen"], cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            errors="replace")
    if result.returncode != 0:
        raise Failure("doxygen has warnings:\n" + result.stdout.replace(f"{folder}/", "").rstrip())
    return folder / "xml"


def joined(texts):
    return re.sub(r"\s+", " ", "".join(texts)).strip()


def plain(element):
    return joined(element.itertext()) if element is not None else ""


def escaped(text):
    return re.sub(r"([\\*`|_])", r"\\\1", text)


def separated(markup, following):
    """Markup ends only at a space or at punctuation that closes."""
    return markup + ("\\ " if re.match(r"[\w(\[{<*=+]", following) else "")


def indented(text, width=3):
    return "\n".join(" " * width + line if line else "" for line in text.splitlines())


class Page:
    def __init__(self, folder):
        self.trees = {path.stem: xml.etree.ElementTree.parse(path).getroot().find("compounddef")
                      for path in folder.glob("*.xml") if path.stem not in ("index", "Doxyfile")}
        self.file = next(tree for tree in self.trees.values() if tree.get("kind") == "file")
        self.structs = {plain(tree.find("compoundname")): tree
                        for tree in self.trees.values() if tree.get("kind") == "struct"}
        self.roles = {}
        for name, tree in self.structs.items():
            self.roles[tree.get("id")] = f":c:struct:`{name}`"
            for member in tree.iter("memberdef"):
                kind = "func" if member.get("kind") == "function" else "member"
                self.roles[member.get("id")] = f":c:{kind}:`{name}.{plain(member.find('name'))}`"
        self.slots = {name: f":c:func:`{name} <AudioHandlerTable.{name}>`"
                      for name in (plain(member.find("name"))
                                   for member in self.structs["AudioHandlerTable"].iter("memberdef"))}
        for member in self.file.iter("memberdef"):
            name = plain(member.find("name"))
            role = {"function": "func", "typedef": "type"}.get(member.get("kind"))
            self.roles[member.get("id")] = f":c:{role}:`{name}`" if role else f"``{name}``"

    # -- text -------------------------------------------------------------------------------------------------------

    def words(self, text):
        """Escaped text with links to the slots that it names, and constants in a fixed font."""
        found, end = [], 0
        for match in re.finditer(r"\bVELTO_[A-Z_]+(?:\.\.\.)?|\b(?:" + "|".join(self.slots) + r")\b", text or ""):
            found += [escaped(text[end:match.start()]),
                      separated(self.slots.get(match[0], f"``{match[0]}``"), text[match.end():])]
            end = match.end()
        return "".join(found) + escaped((text or "")[end:])

    def inline(self, element):
        """The text of an element of a paragraph."""
        parts = [self.words(element.text)]
        for child in element:
            if child.tag == "ref":
                # A struct's name is also the name of its typedef.
                name = plain(child)
                role = f":c:struct:`{name}`" if name in self.structs else self.roles.get(child.get("refid"), name)
                parts.append(separated(role, child.tail or ""))
            elif child.tag in ("computeroutput", "bold", "emphasis"):
                mark = {"computeroutput": "``", "bold": "**", "emphasis": "*"}[child.tag]
                parts.append(mark + plain(child) + mark)
            elif child.tag == "linebreak":
                parts.append(" ")
            else:
                raise Failure(f"{HEADER}: the page of the interface cannot show doxygen's element {child.tag} in a paragraph")
            parts.append(self.words(child.tail))
        return joined(parts)

    def blocks(self, description):
        """The paragraphs, lists and pieces of code of a description, without parameters and results."""
        found = []
        for para in (description if description is not None else ()):
            text = xml.etree.ElementTree.Element("para")
            text.text = para.text

            def flush(after):
                if self.inline(text):
                    found.append(self.inline(text))
                text.clear()
                text.text = after

            for child in para:
                if child.tag == "itemizedlist":
                    flush(child.tail)
                    found.append("\n".join("- " + indented("\n\n".join(self.blocks(item)), 2).lstrip()
                                           for item in child.findall("listitem")))
                elif child.tag in ("programlisting", "verbatim", "preformatted"):
                    flush(child.tail)
                    language = "c" if child.tag == "programlisting" else "text"
                    found.append(f".. code-block:: {language}\n\n" + indented(self.code(child)))
                elif child.tag in ("parameterlist", "simplesect"):
                    flush(child.tail)
                else:
                    text.append(child)
            flush(None)
        return found

    @staticmethod
    def code(element):
        if element.tag != "programlisting":
            return "".join(element.itertext()).strip("\n")
        lines = []
        for line in element.findall("codeline"):
            for space in line.iter("sp"):
                space.text = " "
            lines.append("".join(line.itertext()))
        return "\n".join(lines)

    def description(self, element):
        return "\n\n".join(self.blocks(element.find("briefdescription")) + self.blocks(element.find("detaileddescription")))

    # -- members ----------------------------------------------------------------------------------------------------

    def fields(self, member):
        """The lists of parameters and results."""
        lines = []
        for kind, field in (("param", "param"), ("retval", "retval")):
            for item in member.findall(f"detaileddescription//parameterlist[@kind='{kind}']/parameteritem"):
                names = ", ".join(plain(name) for name in item.findall("parameternamelist/parametername"))
                text = " ".join(self.blocks(item.find("parameterdescription")))
                lines.append((field, names, text))
        result = []
        for heading, wanted in (("Parameters", "param"), ("Result", "retval")):
            rows = [(names, text) for field, names, text in lines if field == wanted]
            if rows:
                result.append(f":{heading}:\n" + indented("\n".join(f"- ``{names}``: {text}" for names, text in rows)))
        return "\n".join(result)

    def check(self, member):
        """doxygen accepts a function without any @param or @retval."""
        documented = {plain(name) for name in member.iter("parametername")}
        name = plain(member.find("name"))
        missing = [plain(param.find("declname")) for param in member.findall("param")
                   if param.find("declname") is not None and plain(param.find("declname")) not in documented]
        where = f"{HEADER}:{member.find('location').get('line')}: {name}"
        if missing:
            raise Failure(f"{where} does not document its parameter {missing[0]}")
        if plain(member.find("type")) != "void" and not member.findall(".//parameterlist[@kind='retval']"):
            raise Failure(f"{where} does not document its results")

    def function(self, member):
        self.check(member)
        declaration = f"{plain(member.find('type'))} {plain(member.find('name'))}{plain(member.find('argsstring'))}"
        return (f".. c:function:: {declaration}\n\n" + indented(self.description(member)) + "\n\n" +
                indented(self.fields(member)))

    def typedef(self, member):
        return (f".. c:type:: {plain(member.find('definition')).removeprefix('typedef ')}\n\n" +
                indented(self.description(member)) + "\n\n" + indented(self.fields(member)))

    def struct(self, name):
        tree = self.structs[name]
        members = []
        for member in sorted(tree.iter("memberdef"), key=line_of):
            if member.get("kind") == "function":
                members.append(self.function(member))
            else:
                declaration = plain(member.find("definition")).replace(f"{name}::", "")
                members.append(f".. c:member:: {declaration}\n\n" + indented(self.description(member)))
        return f".. c:struct:: {name}\n\n" + indented(self.description(tree) + "\n\n" + "\n\n".join(members))

    def constants(self, rows):
        """A table of macros or enumerators: (element, value)."""
        lines = [".. list-table::", "   :header-rows: 1", "   :class: constants", "",
                 "   * - Name", "     - Value", "     - Meaning"]
        for element, value in rows:
            lines += [f"   * - ``{plain(element.find('name'))}``", f"     - ``{value}``",
                      "     - " + indented(self.description(element), 7).lstrip()]
        return "\n".join(lines)

    # -- the page ---------------------------------------------------------------------------------------------------

    def entries(self):
        """(line, text) of everything but the file's own description. Consecutive macros are one table."""
        found = []
        macros = []

        def end_of_macros():
            if macros:
                found.append((line_of(macros[0]), self.constants([(each, plain(each.find("initializer"))) for each in macros])))
                macros.clear()

        structs = [(int(tree.find("location").get("line")), name) for name, tree in self.structs.items()]
        members = [(line_of(each), each) for each in self.file.iter("memberdef")]
        for line, each in sorted(structs + members, key=lambda pair: pair[0]):
            if isinstance(each, str):
                end_of_macros()
                found.append((line, self.struct(each)))
                continue
            kind = each.get("kind")
            if kind == "define":
                if each.find("initializer") is not None:
                    if macros and not self.adjacent(macros[-1], each):
                        end_of_macros()
                    macros.append(each)
                continue
            end_of_macros()
            if kind == "enum":
                values = [(value, plain(value.find("initializer")).removeprefix("= ")) for value in each.findall("enumvalue")]
                text = self.description(each)
                found.append((line, (text + "\n\n" if text else "") + self.constants(values)))
            elif kind == "function":
                found.append((line, self.function(each)))
            elif plain(each.find("name")) not in self.structs:
                found.append((line, self.typedef(each)))
        end_of_macros()
        return found

    def adjacent(self, before, after):
        return not any(line_of(before) < line < line_of(after) for line in self.section_lines)

    def text(self, header):
        sections = [(number, match[1]) for number, line in enumerate(header.splitlines(), 1)
                    if (match := SECTION.match(line)) and not line.startswith(ASSERTIONS)]
        self.section_lines = [number for number, _ in sections]
        parts = ["C interface", "===========", "",
                 ":download:`audio_handler.h <files/audio_handler.h>` in the package's folder ``include/velto/``. The members of "
                 ":c:struct:`AudioHandlerTable` are pointers to functions.", "", self.description(self.file)]
        entries = self.entries()
        parts += ["", "Version", "-------", ""]
        parts += [text for line, text in entries if line < self.section_lines[0]]
        for (number, title), end in zip(sections, self.section_lines[1:] + [10 ** 9]):
            parts += ["", title, "-" * len(title), ""]
            for line, text in entries:
                if number < line < end:
                    parts += [text, ""]
        return "\n".join(parts) + "\n"


def line_of(member):
    return int(member.find("location").get("line"))


def page(root, work):
    return Page(run_doxygen(root, work)).text((root / HEADER).read_text("utf-8"))
