"""The documents of an installed package."""

import re


def check_links(root, package):
    """Each link from one of them leads to a file that is there."""
    folder = root.path(f"/usr/share/doc/{package}")
    links = [(page, link) for page in folder.rglob("*.md")
             for link in re.findall(r"\]\(([^)#\s]+)", page.read_text())
             if "://" not in link]
    assert links, f"{package} has no documents with links"
    nowhere = [f"{page.relative_to(folder)}: {link}" for page, link in links
               if not (page.parent / link).is_file()]
    assert not nowhere, f"{package}: links lead nowhere: {nowhere}"
