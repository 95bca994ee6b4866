// Replaced by the first real source file.
