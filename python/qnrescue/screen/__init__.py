"""The screen: a page in the browser that shows benches and orders restores."""
