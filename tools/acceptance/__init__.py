"""The acceptance run: the archive with which a person tests the library on another Windows, and trials of it here."""
