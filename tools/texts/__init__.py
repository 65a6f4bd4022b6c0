"""The texts of the sources against the pages that explain them."""
