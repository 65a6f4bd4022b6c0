"""Making what explain.html and `./hx explain` know, putting the page together, and checking both."""
