"""Changes the library's sources in small ways, and says which changes no test notices."""
