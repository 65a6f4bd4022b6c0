"""Makes the packages; checks them, the fragments and the pages about them; writes the tables of the guide."""
