# Users of the vendor partition, from its range. The agent's own, which owns the device's key; and the group of the message
# queue's participants: who is in it may use the agent.
[AID_VENDOR_INET_AGENT]
value: 2990

[AID_VENDOR_LOCATION_MQ]
value: 2991
