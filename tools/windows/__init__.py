"""A Windows, from its start to its end, and running programs in it."""
