"""Checks of the library's files: the DLL and its PDB."""
