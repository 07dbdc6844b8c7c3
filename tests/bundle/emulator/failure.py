"""What the check reports as a fault of the bundle."""


class Failure(Exception):
    """The bundle did what the model of its surroundings does not allow, or not what was expected."""
