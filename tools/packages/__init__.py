"""Making packages, checking them and trying them."""
