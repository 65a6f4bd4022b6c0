"""Starting a Windows, running programs in it, and ending it."""
