"""Sphinx's configuration of the site. scripts/site stages the pages and runs Sphinx."""

import os

project = "LibVeltoAudioHandler"
version = release = os.environ["VELTO_SITE_VERSION"]
language = "en"
extensions = ["myst_parser"]
myst_heading_anchors = 4
highlight_language = "text"
# Code in running text keeps its quotation marks.
smartquotes = False
nitpicky = True
nitpick_ignore = [("c:identifier", f"{sign}int{bits}_t") for sign in ("", "u") for bits in (8, 16, 32, 64)]

html_theme = "furo"
html_title = f"{project} {version}"
html_static_path = ["static"]
html_css_files = ["velto.css"]
html_copy_source = False
html_show_sphinx = False
html_show_copyright = False
# The summaries of search results are read over HTTP, which is not possible from a file.
html_show_search_summary = False
