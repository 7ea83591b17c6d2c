# SPDX-License-Identifier: Apache-2.0
"""What tests read out of pages of the documentation."""

import re


def blocks(page, language):
    """The fenced blocks of a language in a page."""
    return re.findall(rf"^```{language}\n(.*?)^```$", page.read_text(), re.M | re.S)


def links(page):
    """Where the links of a page lead, as written there, without the place in the page."""
    text = re.sub(r"^```.*?^```$", "", page.read_text(), flags=re.M | re.S)
    return re.findall(r"\]\(([^)#]+)[^)]*\)", re.sub(r"\s+", " ", text))
