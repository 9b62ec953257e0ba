"""On each page a word of the field leads to the glossary where it first stands, and every such link arrives."""

import pathlib
import re
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
GLOSSARY = SOURCE / "docs/glossary.md"
PAGES = [SOURCE / "README.md", *sorted(page for page in (SOURCE / "docs").glob("*.md") if page != GLOSSARY)]
# Each by its anchor. Names in capitals are the field's, others may begin a sentence.
WORDS = {"ots": "OTS", "rsip": "rsip", "sub-port": "sub-ports?", "dom": "DOM", "pm": "PM", "ptah": "PTAH",
         "interface-manager": "interface manager", "entity-agent": "entity agent", "replay": "replay",
         "resync": "resync", "provisioning": "provisioning"}
OF_OTHERS = {("network.md", "provisioning")}  # Grafana's
UNREAD = re.compile(r"^ *```.*?^ *```|<!--.*?-->|`[^`]*`|^#.*?$", re.MULTILINE | re.DOTALL)
ROW = re.compile(r"^\|.*$", re.MULTILINE)
LINK = re.compile(r"\[[^\]]*\]\([^)]*\)")


def blank(pattern, text):
    return pattern.sub(lambda found: re.sub(r"[^\n]", " ", found.group()), text)


def first(word, text):
    flags = re.IGNORECASE if word.islower() else 0
    found = re.search(rf"(?<![\w/#.-]){word}(?![\w/(-])", text, flags)
    return found.start() if found else None


def complaints(text, words):
    """The words of a page that stand in its running text, or else in a table, before they lead to the glossary."""
    links = {}
    for found in re.finditer(r"\[[^\]]*\]\((?:docs/)?glossary\.md#([\w-]+)\)", text):
        links.setdefault(found.group(1), found.start())
    unlinked = blank(LINK, blank(UNREAD, text))
    for anchor, word in words.items():
        in_prose = first(word, blank(ROW, unlinked))
        place = in_prose if in_prose is not None else first(word, unlinked)
        leads = links.get(anchor)
        late = leads is not None and in_prose is not None and leads > in_prose
        if place is not None and (leads is None or late):
            yield f"{anchor}: {text[max(0, place - 30):place + 30]!r}"


class Glossary(unittest.TestCase):
    def test_words_lead_to_it_where_they_first_stand(self):
        for page in PAGES:
            words = {anchor: word for anchor, word in WORDS.items() if (page.name, anchor) not in OF_OTHERS}
            self.assertEqual(list(complaints(page.read_text(), words)), [], page.name)

    def test_every_link_arrives(self):
        anchors = set(re.findall(r'<a id="([\w-]+)">', GLOSSARY.read_text()))
        self.assertLessEqual(set(WORDS), anchors)
        for page in PAGES:
            led = set(re.findall(r"glossary\.md#([\w-]+)\)", page.read_text()))
            self.assertLessEqual(led, anchors, page.name)

    def test_what_is_not_linked_is_named(self):
        link = "[sub-port](glossary.md#sub-port)"
        for text, wrong in (("Each sub-port has", 1), (f"Each {link} has, and the other sub-port", 0),
                            (f"A sub-port, which is a {link}", 1), ("| sub-port | x |\n", 1),
                            (f"| sub-port | x |\n\nEach {link}", 0), ("`sub-port` and\n```\nsub-port\n```\n# Sub-ports\n", 0)):
            self.assertEqual(len(list(complaints(text, WORDS))), wrong, text)


if __name__ == "__main__":
    unittest.main()
