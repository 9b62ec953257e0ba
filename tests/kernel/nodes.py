"""The nodes that the guest runs, as their descriptions have them."""

# The lights of the keyboard, which are in the kernel's LED class: each node has a folder of links to
# them under the name of one of its ports' LEDs.
LIGHTS = {"green:status": "input0::numlock", "red:fault": "input0::capslock"}
SERVICE_PORT = 9464
PLAYED_PORT = 9465
SERVICE_LEDS = "/etc/lumd/leds"
PLAYED_LEDS = "/etc/lumd/played-leds"
LED_OF = {SERVICE_LEDS: "west", PLAYED_LEDS: "plain"}
# Files of the kernel's that hold one of two values and can be written: what a board's GPIOs are.
PRESENCE = "/sys/class/leds/input0::scrolllock/brightness"
RESET = "/sys/module/printk/parameters/time"
STUB_BUS = "/dev/i2c-0"

# The modules on the kernel's stub: address, and the example that its memory is made of. One address
# more belongs to a driver of the kernel's, and one has a flat memory behind that driver.
STUB_MODULES = {0x50: "iivi-old-map", 0x51: "iivi-alarm", 0x52: "accelink-new-map"}
MODULES = sorted({*STUB_MODULES.values(), "accelink-old-map", "iivi-new-map"})
TAKEN = 0x54
FLAT = 0x55
EMPTY = 0x57


def stub_port(number, name, address, *more):
    return [
        "[[slot.instance.port]]", f"number = {number}", f"handle = {0x100 + number}",
        f'name = "{name}"', 'backend = "i2c-dev"', f'bus = "{STUB_BUS}"', f"address = {address}",
        *more,
    ]


def head(name, *more):
    return [f'name = "{name}"', *more, "[[slot]]", "number = 1", "[[slot.instance]]"]


def service_node():
    """The node of the service, on the kernel's stub."""
    return "\n".join([
        *head("guest", 'state_directory = "/var/lib/lumd"', 'trace_directory = "/var/log/lumd"',
              f'led_directory = "{SERVICE_LEDS}"', f"http_port = {SERVICE_PORT}", 'api_socket = "/run/lumd/lumd.sock"'),
        *stub_port(1, "west", 0x50, 'led = "west"'),
        *stub_port(2, "east", 0x51),
        *stub_port(3, "north", 0x52, f'presence = "{PRESENCE}"', f'reset = "{RESET}"',
                   'reset_value = "N"', 'reset_idle_value = "Y"'),
        *stub_port(4, "cold", EMPTY),
        *stub_port(5, "taken", TAKEN),
        "[[slot.instance.port]]", "number = 6", "handle = 6", 'name = "flat"',
        f'module = "/sys/bus/i2c/devices/0-{FLAT:04x}/eeprom"',
    ]) + "\n"


# Ports on buses that are played outside the kernel, each of which has a folder of its own.
PLAYED = {
    "plain": (20, ['led = "plain"']),
    "banked": (21, ["bank = 1"]),
    "blocks": (22, []),
    "hung": (23, []),
    "line": (24, ['presence = "/run/played/line/value"', 'reset = "/run/played/line/reset"']),
}
PLAYED_SOCKET = "/run/played/lumd.sock"


def played_node():
    lines = head("played", 'state_directory = "/run/played/state"',
                 'trace_directory = "/run/played/traces"', f'led_directory = "{PLAYED_LEDS}"', f"http_port = {PLAYED_PORT}",
                 f'api_socket = "{PLAYED_SOCKET}"')
    for number, (name, (bus, more)) in enumerate(PLAYED.items(), 1):
        lines += ["[[slot.instance.port]]", f"number = {number}", f"handle = {number}",
                  f'name = "{name}"', 'backend = "i2c-dev"', f'bus = "/dev/i2c-{bus}"', *more]
    return "\n".join(lines) + "\n"
