"""Makes the documents as an offline site, build/site/index.html.

It has the guide and the other pages of docs/, the C interface from the public header, the command lines from the programs' own
help, and the JSON output of velto-host from its schemas. docs/site/pages.toml lists the pages. Warnings of doxygen and Sphinx and
broken links are errors.
"""

import argparse
import functools
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import tomllib

import site_header
import site_links
import wine_program

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
OUT = REPOSITORY / "build" / "site"
FAILURES = (OSError, RuntimeError, subprocess.SubprocessError, ValueError)
PAGES = "docs/site/pages.toml"
SCHEMAS = "docs/schemas"
LINK = re.compile(r"\[([^\[\]]*)\]\(([^)\s]+)\)")
# Fenced code, and code in a line.
CODE = re.compile(r"^```.*?^```[^\n]*$|`[^`\n]+`", re.M | re.S)
# The source of a figure, which follows as SVG.
DRAWING = re.compile(r"^```mermaid$.*?^```$", re.M | re.S)
IMAGES = (".png", ".svg")
# Files that no page needs: of the build, of a theme under furo, and libraries for older extensions of Sphinx.
UNUSED = (".buildinfo", "objects.inv", "_static/debug.css", "_static/skeleton.css", "_static/jquery.js",
          "_static/underscore.js", "_static/_sphinx_javascript_frameworks_compat.js")
UNUSED_SCRIPT = re.compile(r'^ *<script src="(?:' + "|".join(map(re.escape, UNUSED)) + r')"></script>\n', re.M)
# Debian's themes refer to libraries where a web server of Debian would have them.
DEBIAN_SCRIPT = re.compile(r"(url\(\s*['\"]?)/javascript/([^'\")]+)")
DEBIAN_SCRIPTS = pathlib.Path("/usr/share/javascript")
# Debian's furo has its script in two modules, which browsers do not load from files.
MODULE_IMPORT = re.compile(r'^import (?:\* as )?Gumshoe from "\./(gumshoe-patched\.js)";\n')
MODULE_TAG = '<script type="module" src='
HELP_SECONDS = 60
COLUMNS = "110"


def say(text):
    print(f"site: {text}", flush=True)


def is_page_text(path):
    return path.endswith(".md")


class Site:
    """The pages of one source tree, staged for Sphinx in a folder."""

    def __init__(self, root, work, host, wine_prefix):
        self.root = root
        self.work = work
        self.staged = work / "source"
        self.host = host
        self.wine_prefix = wine_prefix
        table = tomllib.loads((root / PAGES).read_text("utf-8"))
        self.pages = table["page"]
        self.files = set(table["files"])
        self.by_source = {page["source"]: page for page in self.pages}

    # -- staging ----------------------------------------------------------------------------------------------------

    @staticmethod
    def staged_name(page):
        return f"{page['page']}.md" if is_page_text(page["source"]) else f"{page['page']}.rst"

    def stage(self):
        (self.staged / "files").mkdir(parents=True)
        for page in self.pages:
            parts = [self.with_links(page["source"])] if is_page_text(page["source"]) else []
            if page["page"] == "index":
                parts.append(self.menu())
            if "make" in page:
                parts.append({"interface": self.interface, "command-line": self.command_lines, "json": self.schemas}
                             [page["make"]]())
            (self.staged / self.staged_name(page)).write_text("\n".join(parts), "utf-8")

    def menu(self):
        lines = ["", "```{toctree}", ":hidden:", ""]
        for page in self.pages:
            if "group" in page:
                lines += ["```", "", "```{toctree}", ":hidden:", f":caption: {page['group']}", ""]
            name = "self" if page["page"] == "index" else page["page"]
            lines.append(f"{page['title']} <{name}>" if "title" in page else name)
        return "\n".join([*lines, "```", ""])

    def with_links(self, source):
        """The text of a page, with links to the staged files."""
        text = DRAWING.sub(lambda drawing: "\n" * drawing[0].count("\n"), (self.root / source).read_text("utf-8"))
        code = [match.span() for match in CODE.finditer(text)]

        def replaced(match):
            if any(begin <= match.start() < end for begin, end in code):
                return match[0]
            return self.link(source, *match.groups())

        return LINK.sub(replaced, text)

    def link(self, source, label, target):
        if re.match(r"[a-z]+:|#", target):
            return f"[{label}]({target})"
        name, hash_, anchor = target.partition("#")
        path = os.path.normpath(pathlib.PurePosixPath(source).parent / name)
        page = self.by_source.get(path) or next((page for page in self.pages if path == f"docs/site/{self.staged_name(page)}"),
                                                None)
        if page:
            # A reader of the site does not know the names of the files.
            return f"[{self.title_of(page) if label.endswith('.md') else label}]({self.staged_name(page)}{hash_}{anchor})"
        if not (self.root / path).exists():
            raise RuntimeError(f"{source} links to {target}, which does not exist")
        if path.endswith(IMAGES):
            shutil.copy(self.root / path, self.staged)
            return f"[{label}]({pathlib.PurePosixPath(path).name})"
        if path in self.files:
            return f"[{label}]({self.file(path)})"
        return f"{label} (`{path}` of the sources)" if label != path else f"`{path}` of the sources"

    def title_of(self, page):
        return page.get("title") or (self.root / page["source"]).read_text("utf-8").partition("\n")[0].removeprefix("# ")

    def file(self, path):
        """Stages a file that the site has as it is, and returns its name there."""
        shutil.copy(self.root / path, self.staged / "files")
        return f"files/{pathlib.PurePosixPath(path).name}"

    # -- generated text ---------------------------------------------------------------------------------------------

    def interface(self):
        self.file(site_header.HEADER)
        return site_header.page(self.root, self.work)

    def command_lines(self):
        programs = [("velto-host", self.help_of_host())]
        for command in re.findall(r"^  (\w+) ", programs[0][1].partition("Subcommands:")[2].partition("\n\n")[0], re.M):
            programs.append((f"velto-host {command}", self.help_of_host(command)))
        if len(programs) < 2:
            raise RuntimeError("the help of velto-host lists no command")
        scripts = sorted(path for path in (self.root / "scripts").iterdir()
                         if path.suffix == "" and os.access(path, os.X_OK))
        programs += [(f"scripts/{path.name}", self.help_of_script(path)) for path in scripts]
        parts = []
        for name, text in programs:
            parts.append(f"## {name}\n\n```{{code-block}} text\n:class: help\n\n{text.strip()}\n```\n")
        return "\n".join(parts)

    def help_of_host(self, *command):
        # Without a command, --help-all prints the help of all commands.
        option = "--help-all" if command else "--help"
        return self.checked(self.host.name, wine_program.run(self.wine_prefix, self.host, *command, option,
                                                             timeout_s=HELP_SECONDS))

    def help_of_script(self, path):
        return self.checked(path.name, subprocess.run([str(path), "--help"], stdin=subprocess.DEVNULL, capture_output=True,
                                                      text=True, errors="replace", timeout=HELP_SECONDS, cwd=self.root,
                                                      env=dict(os.environ, COLUMNS=COLUMNS)))

    def checked(self, name, result):
        """Returns the help that a program has printed."""
        text = result.stdout.rstrip()
        if result.returncode != 0 or not text:
            raise RuntimeError(f"{name} does not print its help: {result.stderr[-500:]}")
        for path in (str(self.root), str(self.work), str(pathlib.Path.home())):
            if re.search(rf"(?<![\w.-]){re.escape(path)}\b", text):
                raise RuntimeError(f"the help of {name} contains {path}, a path of this machine")
        return text

    def schemas(self):
        parts = []
        found = sorted((self.root / SCHEMAS).glob("*.json"))
        for path in found:
            schema = json.loads(path.read_text("utf-8"))
            parts += [f"## {schema['title']}", "", schema["description"], "",
                      f"Schema: [{path.name}]({self.file(f'{SCHEMAS}/{path.name}')}), `{schema['$id']}`", ""]
            parts += table_of(schema)
        return "\n".join(parts)

    # -- building ---------------------------------------------------------------------------------------------------

    def build(self, version, seconds):
        """Returns the folder of the finished site."""
        html = self.work / "html"
        environment = dict(os.environ, VELTO_SITE_VERSION=version, SOURCE_DATE_EPOCH=str(seconds), PYTHONHASHSEED="0",
                           LC_ALL="C.UTF-8", TZ="UTC", PYTHONDONTWRITEBYTECODE="1", NO_COLOR="1")
        result = subprocess.run([sys.executable, "-m", "sphinx", "-W", "--keep-going", "-q", "-b", "html",
                                 "-c", str(self.root / "docs" / "site"), "-d", str(self.work / "doctrees"),
                                 str(self.staged), str(html)], env=environment, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, errors="replace")
        if result.returncode != 0:
            raise RuntimeError("Sphinx has warnings:\n" + result.stdout.replace(f"{self.staged}/", "").rstrip())
        for name in UNUSED:
            (html / name).unlink(missing_ok=True)
        copy_debian_scripts(html / "_static")
        join_modules(html / "_static" / "scripts")
        tidy_pages(html)
        wrong = site_links.problems(html)
        if wrong:
            raise RuntimeError("the site has wrong links:\n" + "\n".join(wrong))
        return html


def tidy_pages(html):
    """Moves the files from Sphinx's folders with a checksum as name into the folder files. Loads no unused script."""
    moved = {}
    for path in sorted((html / "_downloads").glob("*/*")):
        moved[path.relative_to(html).as_posix()] = f"files/{path.name}"
        (html / "files").mkdir(exist_ok=True)
        path.rename(html / "files" / path.name)
    shutil.rmtree(html / "_downloads", ignore_errors=True)
    for page in html.glob("*.html"):
        text = UNUSED_SCRIPT.sub("", page.read_text("utf-8")).replace(MODULE_TAG, "<script src=")
        page.write_text(re.sub(r"_downloads/[0-9a-f]+/[^\"]+", lambda link: moved[link[0]], text), "utf-8")


def join_modules(scripts):
    path = scripts / "furo.js"
    text = path.read_text("utf-8")
    imported = MODULE_IMPORT.match(text)
    if imported:
        path.write_text((scripts / imported[1]).read_text("utf-8") + text[imported.end():], "utf-8")
        (scripts / imported[1]).unlink()


def copy_debian_scripts(static):
    """Copies the libraries that the theme's styles take from /javascript, and refers to the copies."""
    for style in sorted(path for path in static.rglob("*.css") if path.is_file()):
        text = style.read_text("utf-8")
        for _, name in DEBIAN_SCRIPT.findall(text):
            copy = static / "javascript" / name
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(DEBIAN_SCRIPTS / name, copy)
        here = os.path.relpath(static / "javascript", style.parent)
        style.write_text(DEBIAN_SCRIPT.sub(rf"\g<1>{here}/\g<2>", text), "utf-8")


def type_of(schema):
    if "const" in schema:
        return f"`{json.dumps(schema['const'])}`"
    if "enum" in schema:
        return " or ".join(f"`{json.dumps(each)}`" for each in schema["enum"])
    if "$ref" in schema:
        command = re.search(r":velto-host-([\w-]+):", schema["$ref"])[1]
        return f"as [{command}](#{command})"
    kind = schema.get("type", "any")
    names = [kind] if isinstance(kind, str) else kind
    text = " or ".join(names)
    if "array" in names and "items" in schema:
        text += f" of {type_of(schema['items'])}"
    return text


def rows_of(schema, prefix=""):
    required = schema.get("required", [])
    for name, member in schema.get("properties", {}).items():
        text = member.get("description", "")
        if name not in required:
            text += (" " if text else "") + "*Optional.*"
        yield f"| `{prefix}{name}` | {type_of(member)} | {text} |"
        inner = member.get("items", member)
        if "properties" in inner:
            yield from rows_of(inner, f"{prefix}{name}{'[]' if 'items' in member else ''}.")


def members(schema):
    """All members of a command's output, or of the form of an error: rows of the table on the page."""
    return [*rows_of(schema), *rows_of(schema.get("$defs", {}).get("result", {}))]


def table_of(schema):
    return ["```{table}", ":class: fields", "", "| Member | Type | Meaning |", "|---|---|---|", *members(schema), "```", ""]


@functools.cache
def version_of(root):
    text = (root / "CMakeLists.txt").read_text("utf-8")
    return re.search(r"project\(velto_audio_handler\s+VERSION ([\d.]+)", text)[1]


def make(root, host, wine_prefix, out, seconds):
    """Makes the site of the sources in root in the folder out; host is the built velto-host.exe."""
    with tempfile.TemporaryDirectory(prefix="velto-site-") as name:
        site = Site(root, pathlib.Path(name), host, wine_prefix)
        site.stage()
        html = site.build(version_of(root), seconds)
        shutil.rmtree(out, ignore_errors=True)
        out.parent.mkdir(parents=True, exist_ok=True)
        shutil.move(html, out)


def seconds_of_commit():
    if os.environ.get("SOURCE_DATE_EPOCH"):
        return int(os.environ["SOURCE_DATE_EPOCH"])
    result = subprocess.run(["git", "-C", str(REPOSITORY), "log", "-1", "--format=%ct"], stdout=subprocess.PIPE, text=True)
    return int(result.stdout) if result.returncode == 0 else 0


def main():
    parser = argparse.ArgumentParser(prog="scripts/site", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter,
                                     epilog="Exit code: 0, 1 if a step fails, 2 for wrong arguments.")
    parser.parse_args()
    try:
        subprocess.run([REPOSITORY / "scripts" / "setup", "--site"], check=True)
        subprocess.run([REPOSITORY / "scripts" / "build", "windows"], check=True)
        build = REPOSITORY / "build" / "windows"
        wine_program.prepare(build / "wine")
        make(REPOSITORY, build / "bin" / "velto-host.exe", build / "wine", OUT, seconds_of_commit())
    except FAILURES as problem:
        print(f"site: error: {problem}", file=sys.stderr)
        return 1
    say(f"{OUT.relative_to(REPOSITORY)}/index.html")
    return 0


if __name__ == "__main__":
    sys.exit(main())
