"""The fragments and the packages: making them, checking them and the pages about them, and the tables of the guide."""
