"""What all files of a release, and all releases, have in common."""

import uuid

# Windows Installer finds the version to replace by it: it never changes.
UPGRADE_CODE = "9B5EE486-158F-49C5-AC07-5AED1FC8E239"
NAMESPACE = uuid.UUID("8638f84e-2ff0-477f-8ceb-132d921b97d6")
EXECUTABLES = (".exe", ".dll")


def identifier_of(text):
    """Returns an identifier that is always the same for the same text."""
    return uuid.uuid5(NAMESPACE, text)
