"""A shelf whose modules have all been polled, one of them with alarms."""

from actions import Actions


class Monitored(Actions):
    """On the shelf of the actions, once every module has been polled."""

    def setUp(self):
        super().setUp()
        self.alarmed = self.add_module("iivi-alarm", slot=2)

    def begin(self):
        self.start()
        cages = (self.first, self.second, self.other, self.alarmed)
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: all({"power_1", "alarms"} <= sub.get("pm", {}).keys() for cage in cages
                            for sub in now[cage.name]["sub_ports"]), 20))

    def alarms(self, cage, sub_port):
        """What the alarm service knows of a sub-port."""
        for known in self.does("show", "alarms", "--all")["interfaces"]:
            if (known["port"], known["sub_port"]) == (cage.name, sub_port):
                return known
        return None

    def values(self, cage, sub_port, bin_number=0):
        """The PM values of a sub-port's bin, by name."""
        interface = self.does("show", "pm", cage.name)["interfaces"][sub_port]
        return {value["name"]: value for value in interface["bins"][bin_number]["values"]}
