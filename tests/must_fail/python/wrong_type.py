"""What the check of types has to find: text for a number."""

NUMBER: int = "one"
