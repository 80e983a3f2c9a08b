# That of the library with which this package comes: include/Veltra/Version.h has the same figures.
__version__ = "1.1.0"
