"""pytest has to report a test that fails."""


def test_failure() -> None:
    assert 1 == 2
