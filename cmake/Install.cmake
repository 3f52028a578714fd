# Filled by the packaging of the library.
