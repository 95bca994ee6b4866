"""Connects a bench to a fleet: orders come, and states go, through an MQTT broker.

The bench does not depend on the broker: the journal has everything, and a supervisor restores."""
