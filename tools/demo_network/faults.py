"""What is broken on purpose: how, which alerts have to tell of it, and by what the node itself shows
that it is so."""

import dataclasses
import resource
import subprocess
import threading

HANGS_S = 10  # as the rule LumModuleHung has it
LOOK_S = 1.25  # the driver looks at its cages once a second


@dataclasses.dataclass(frozen=True)
class Awaited:
    """One alert, with the labels that name what is broken."""

    alert: str
    node: object
    labels: tuple = ()

    @property
    def wanted(self):
        return {"alertname": self.alert, "job": "lum", "instance": self.node.name,
                **dict(self.labels)}

    def is_in(self, labels):
        return self.wanted.items() <= labels.items()


class Fault:
    """Broken and healed once."""

    title = ""
    # What else follows from it on its nodes, sooner or later, and is no mistake.
    consequences = ()
    needs_an_hour_before = False  # the rule compares with an hour ago

    def __init__(self, nodes, scrape_s):
        self.nodes = nodes
        self.node = nodes[0]
        self.scrape_s = scrape_s

    def awaited(self):
        raise NotImplementedError

    def break_it(self):
        raise NotImplementedError

    def heal(self):
        raise NotImplementedError

    def shows(self, awaited):
        """Whether the node measures now what the alert asks for; OSError when it does not answer."""
        raise NotImplementedError


class Flapping(Fault):
    title = "a module flaps"

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.cage = self.node.modules[0]
        self.changes = 0
        self.healed = threading.Event()
        self.hand = threading.Thread(target=self.flap, daemon=True)

    def awaited(self):
        return [Awaited("LumModuleFlapping", self.node, (("port", self.cage.name),))]

    def break_it(self):
        self.hand.start()

    def flap(self):
        """Out and in, so long each time that neither driver nor scrape misses it."""
        while not self.healed.wait(max(LOOK_S, 1.3 * self.scrape_s)):
            self.change()

    def change(self):
        action = "insert" if self.changes % 2 else "remove"
        try:
            self.node.driver.lumctl("module", action, self.cage.name)
            self.changes += 1
        except (RuntimeError, OSError, subprocess.SubprocessError):
            pass  # tried again; that there are too few is told in the end

    def heal(self):
        self.healed.set()
        self.hand.join()
        if self.changes % 2:
            self.change()

    def shows(self, awaited):
        present = self.node.values("lum_module_present", port=self.cage.name)
        if self.healed.is_set():
            return present != [1]
        # More than 4 of the metric; the latest may not be in it yet.
        return self.changes > 5 or (self.changes == 5 and present == [0])


class HungBus(Fault):
    title = "a bus hangs"
    consequences = ("LumPortStale", "LumPortFailing", "LumPollingSlow", "LumModuleFlapping")

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.cage = self.node.modules[1]

    def awaited(self):
        return [Awaited("LumModuleHung", self.node, (("port", self.cage.name),)),
                Awaited("LumNotPolled", self.node)]

    def break_it(self):
        self.node.driver.lumctl("module", "fault", self.cage.name, "hang")

    def heal(self):
        self.node.driver.lumctl("module", "fault", self.cage.name, "none")

    def shows(self, awaited):
        if awaited.alert == "LumNotPolled":
            return self.node.values("lum_polling_stopped") == [1]
        return self.node.values("lum_module_busy_seconds", port=self.cage.name)[0] > HANGS_S


class FullDisk(Fault):
    """No file of the driver may grow any more, which needs no root: each write that would make one
    longer is refused, as on a full disk. What an operator sets meanwhile cannot be saved."""

    title = "a disk is full"
    consequences = ("LumTraceLost", "LumSettingsAtRisk")

    def awaited(self):
        return [Awaited("LumStoreUnusable", self.node), Awaited("LumEventsNotKept", self.node)]

    def limit(self, size):
        resource.prlimit(self.node.driver.process.pid, resource.RLIMIT_FSIZE,
                         (size, resource.RLIM_INFINITY))

    def set_threshold(self, value):
        try:
            self.node.driver.lumctl("set", self.node.span.name, f"threshold={value}")
        except RuntimeError:
            pass  # it is in force and says that it is not saved

    def break_it(self):
        self.limit(0)
        self.set_threshold(8)
        # An event, for it is the next of them that finds no room.
        self.node.driver.lumctl("module", "remove", self.node.modules[0].name)

    def heal(self):
        self.limit(resource.RLIM_INFINITY)
        self.node.driver.lumctl("module", "insert", self.node.modules[0].name)
        self.set_threshold(7)

    def shows(self, awaited):
        metric = {"LumStoreUnusable": "lum_store_usable",
                  "LumEventsNotKept": "lum_events_kept"}[awaited.alert]
        return self.node.values(metric) == [0]


class KilledDriver(Fault):
    title = "a driver is killed"
    consequences = ("LumPortStale",)

    def awaited(self):
        return [Awaited("LumNodeDown", self.node)]

    def break_it(self):
        self.node.driver.kill()

    def heal(self):
        self.node.driver.start()

    def shows(self, awaited):
        try:
            self.node.samples()
        except OSError:
            return True
        return False


class DimSpan(Fault):
    title = "a span loses 3 dB"
    needs_an_hour_before = True
    LOSS_DB = 3.0

    def awaited(self):
        return [Awaited("LumPowerFell", node, (("port", node.span.name), ("sub_port", "0"),
                                               ("reading", "power-0")))
                for node in self.nodes]

    def break_it(self):
        self.full = {node.name: self.power(node) for node in self.nodes}
        for node in self.nodes:
            node.write_span(fallen_by=self.LOSS_DB)

    def heal(self):
        for node in self.nodes:
            node.write_span(fallen_by=0)

    @staticmethod
    def power(node):
        return node.values("lum_power_dbm", port=node.span.name, sub_port="0",
                           reading="power-0")[0]

    def shows(self, awaited):
        # As the module gives it, in hundredths.
        return self.power(awaited.node) - self.full[awaited.node.name] < -self.LOSS_DB + 0.005


ALL = (Flapping, HungBus, FullDisk, KilledDriver, DimSpan)


def spread(nodes, scrape_s):
    """Every fault on nodes of its own; with 5 nodes the span ends where the driver is not killed."""
    if len(nodes) < 5:
        raise RuntimeError(f"{len(nodes)} nodes are too few: each fault wants one, the span two "
                           "that nothing keeps from measuring, so give 5 or more")
    alone = [kind([node], scrape_s) for kind, node in zip(ALL[:4], nodes)]
    # The flapping node's other modules are well.
    ends = [nodes[4], nodes[5] if len(nodes) > 5 else nodes[0]]
    return [*alone, DimSpan(ends, scrape_s)]
