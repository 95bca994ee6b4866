// A program of tests without a test: GoogleTest itself would let it pass.
