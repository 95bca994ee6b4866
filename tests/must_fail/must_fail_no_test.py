"""A module without a test: unittest itself would let it pass."""
