"""No dialog of the packages sets a property of the table in docs/authoring.md that says who may set which: a dialog would
set it in a process of the user who installs."""

import re
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent

# Elements that may have a property that they set, but are not in a dialog.
NO_DIALOG = ("CustomAction", "UpgradeVersion")


def protected():
    """The properties of the table in the guide."""
    page = (ROOT / "docs/authoring.md").read_text(encoding="utf-8")
    table = re.search(r"<!-- generated: given -->\n(.*?)<!-- end of given -->", page, re.DOTALL)[1]
    return set(re.findall(r"^\| `(\w+)` \|", table, re.MULTILINE))


def set_by_dialogs(text):
    """The properties that the controls of a file's dialogs set: fields, boxes and lists, and the events of buttons."""
    found = set()
    for element in ElementTree.fromstring(text).iter():
        if element.tag.rpartition("}")[2] not in NO_DIALOG:
            found |= {element.get(key) for key in ("Property", "CheckBoxPropertyRef")}
            found |= set(re.findall(r"^\[(\w+)\]$", element.get("Event", "")))
    return found - {None}


class DialogsTest(unittest.TestCase):
    def test_packages_as_they_are(self):
        files = sorted((ROOT / "packages").rglob("*.wx?"))
        self.assertIn(ROOT / "packages/server/server.wxs", files)
        for path in files:
            self.assertEqual(set_by_dialogs(path.read_text(encoding="utf-8")) & protected(), set(), path.name)

    def test_table_is_found(self):
        self.assertLessEqual({"DIR_SERVER", "PROP_DFPRESENT", "PROP_RESETAUDIT", "SERVICEFOUND"}, protected())

    def test_controls_are_found(self):
        text = """<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi"><Fragment><UI><Dialog Id="D">
            <Control Id="A" Type="Edit" Property="IN_FIELD"><RadioButtonGroup Property="IN_GROUP"/></Control>
            <Control Id="B" Type="CheckBox" CheckBoxPropertyRef="IN_BOX"><Publish Property="IN_EVENT" Value="1"/>
            <Publish Event="[IN_NAMED_EVENT]" Value="1"/><Publish Event="EndDialog" Value="Return"/></Control></Dialog>
            <ListBox Property="IN_LIST"/></UI><CustomAction Id="C" Property="NOT_IN_ONE" Value="1"/></Fragment></Wix>"""
        self.assertEqual(set_by_dialogs(text), {"IN_FIELD", "IN_GROUP", "IN_BOX", "IN_EVENT", "IN_NAMED_EVENT", "IN_LIST"})


if __name__ == "__main__":
    unittest.main()
