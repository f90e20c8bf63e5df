"""Checks the HTML pages of a folder: every link has a target, every target is in the folder, nothing is loaded from elsewhere."""

import html.parser
import pathlib
import re
import urllib.parse

# Attributes that make the browser load a file, and those that only link to it.
LOADING = {("img", "src"), ("script", "src"), ("link", "href"), ("source", "src"), ("iframe", "src"), ("object", "data"),
           ("video", "src"), ("audio", "src"), ("embed", "src"), ("use", "href"), ("image", "href")}
LINKING = {("a", "href"), ("area", "href"), ("form", "action")}
# Links that name no file.
INFORMATIVE = {"index", "search", "next", "prev", "genindex", "canonical", "author", "copyright"}
CSS_URL = re.compile(r"url\(\s*['\"]?([^'\")]+)['\"]?\s*\)|@import\s+['\"]([^'\"]+)")


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.ids = set()
        self.targets = []  # (line, target, whether it is loaded)
        self.styles = []
        self._in_style = False
        self.feed(path.read_text("utf-8"))
        self.close()

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        self._in_style = tag == "style"
        self.ids |= {values[name] for name in ("id", "name") if values.get(name) and (name == "id" or tag == "a")}
        if values.get("style"):
            self.styles.append((self.getpos()[0], values["style"]))
        for name, value in values.items():
            if value is not None and (tag, name) in LOADING | LINKING:
                loaded = (tag, name) in LOADING and not (tag == "link" and values.get("rel") in INFORMATIVE)
                self.targets.append((self.getpos()[0], value, loaded))
            if name == "srcset":
                self.targets += [(self.getpos()[0], part.split()[0], True) for part in value.split(",")]

    def handle_endtag(self, tag):
        self._in_style = False

    def handle_data(self, data):
        if self._in_style:
            self.styles.append((self.getpos()[0], data))


def problem_of(folder, pages, path, target, loaded):
    """Why the target, found in the file at path, is wrong; None if it is right."""
    parts = urllib.parse.urlsplit(target)
    if parts.scheme == "data":
        return None
    if parts.scheme in ("http", "https", "mailto"):
        if loaded:
            return f"loads {target} from elsewhere"
        valid = parts.netloc and "." in parts.netloc if parts.scheme != "mailto" else "@" in parts.path
        return None if valid and not re.search(r"[\s<>]", target) else f"links to {target}, which is no valid address"
    if parts.scheme or parts.netloc or target.startswith("/"):
        return f"links to {target}, which is not in the site"
    name = urllib.parse.unquote(parts.path)
    file = (path.parent / name).resolve() if name else path.resolve()
    if not file.is_relative_to(folder) or not file.is_file():
        return f"links to {target}, which does not exist"
    anchor = urllib.parse.unquote(parts.fragment)
    if anchor and file in pages and anchor not in pages[file].ids:
        return f"links to {target}, but there is no such anchor"
    return None


def problems(folder):
    """The wrong links of the site, as texts."""
    folder = pathlib.Path(folder).resolve()
    pages = {path: Page(path) for path in sorted(folder.rglob("*.html"))}
    found = []
    for path, page in pages.items():
        targets = page.targets + [(line, one or other, True) for line, style in page.styles
                                  for one, other in CSS_URL.findall(style)]
        for line, target, loaded in targets:
            problem = problem_of(folder, pages, path, target, loaded)
            if problem:
                found.append(f"{path.relative_to(folder)}:{line}: {problem}")
    for path in sorted(path for path in folder.rglob("*.css") if path.is_file()):
        for one, other in CSS_URL.findall(path.read_text("utf-8")):
            problem = problem_of(folder, pages, path, one or other, True)
            if problem:
                found.append(f"{path.relative_to(folder)}: {problem}")
    return found
