"""Checks the fragments, the packages and the pages about them; writes the tables of the guide."""
