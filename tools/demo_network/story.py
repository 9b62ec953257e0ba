"""Everything is broken at the same time, each alert awaited in Prometheus and in Alertmanager, then
healed and awaited until it is gone."""

import dataclasses
import time

from shelf import engine as engines

import faults

LOOK_S = 0.2
NODE_LIMIT_S = 90  # for a node to show what was done to it; bounds of the engine are the rules'
# What a busy machine alone does not bring about: none of these may fire where nothing was broken.
NEVER_BY_LOAD = ("LumModuleFlapping", "LumModuleHung", "LumStoreUnusable", "LumEventsNotKept",
                 "LumPowerFell")


class NotSeen(Exception):
    pass


@dataclasses.dataclass
class Sight:
    """One awaited alert: when the node showed it, when the engine told it, and the same of its end."""

    fault: faults.Fault
    awaited: faults.Awaited
    shown: float = None
    told: float = None
    shown_healed: float = None
    resolved: float = None


class Story:
    def __init__(self, network, engine, grace_s, say):
        self.network = network
        self.engine = engine
        self.grace_s = grace_s
        self.say = say
        self.faults = faults.spread(network.nodes, engine.scrape_s)
        self.sights = [Sight(fault, awaited) for fault in self.faults
                       for awaited in fault.awaited()]
        self.broken = {}
        self.healed = {}

    def run(self):
        self.wait_for("all nodes are scraped", self.all_are_scraped, NODE_LIMIT_S)
        began = time.monotonic()
        self.say(f"every one of {len(self.network.nodes)} nodes is scraped")
        self.break_all([fault for fault in self.faults if not fault.needs_an_hour_before])
        hour = 3600 / self.engine.factor + 2 * self.engine.scrape_s
        self.follow(until=began + hour)
        self.break_all([fault for fault in self.faults if fault.needs_an_hour_before])
        self.follow()
        self.check_nobody_else()

    def all_are_scraped(self):
        return len(self.engine.query('up{job="lum"} == 1')) == len(self.network.nodes)

    def wait_for(self, what, condition, seconds):
        deadline = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > deadline:
                raise NotSeen(f"{what}: not within {seconds:.0f} s")
            time.sleep(LOOK_S)

    def break_all(self, some):
        for fault in some:
            self.broken[fault] = time.monotonic()
            fault.break_it()
            self.say(f"broken: {fault.title}")

    def follow(self, until=None):
        """Until everything that is broken is seen, healed and resolved, or until that moment."""
        while not self.is_over() if until is None else time.monotonic() < until:
            begun = time.monotonic()
            self.look()
            time.sleep(max(0, LOOK_S - (time.monotonic() - begun)))

    def is_over(self):
        return all(sight.resolved for sight in self.sights)

    def look(self):
        self.look_at_nodes()
        firing = self.engine.firing()
        known = self.engine.told()
        told = [labels for labels, _ in known]
        active = [labels for labels, state in known if state == "active"]
        now = time.monotonic()
        for sight in self.sights:
            self.look_at(sight, now, firing, told, active)
        for fault in list(self.broken):
            of_it = [sight for sight in self.sights if sight.fault is fault]
            if fault not in self.healed and all(sight.told for sight in of_it):
                fault.heal()
                self.healed[fault] = time.monotonic()
                self.say(f"healed: {fault.title}")

    def look_at_nodes(self):
        for sight in self.sights:
            if sight.fault not in self.broken:
                continue
            if sight.shown is None:
                if self.shows(sight):
                    sight.shown = time.monotonic()
                self.hold(sight, "the node does not show", self.broken[sight.fault], sight.shown,
                          NODE_LIMIT_S)
            elif sight.fault in self.healed and sight.shown_healed is None:
                if not self.shows(sight, after_healing=True):
                    sight.shown_healed = time.monotonic()
                self.hold(sight, "the node goes on showing", self.healed[sight.fault],
                          sight.shown_healed, NODE_LIMIT_S)

    @staticmethod
    def shows(sight, after_healing=False):
        try:
            return sight.fault.shows(sight.awaited)
        except OSError:  # too busy to answer, or not up again
            return after_healing

    def look_at(self, sight, now, firing, told, active):
        if sight.told is None and sight.shown is not None:
            if all(any(sight.awaited.is_in(labels) for labels in seen)
                   for seen in (firing, active)):
                sight.told = now
                self.say(f"told:   {describe(sight.awaited)}")
            self.hold(sight, "not told", sight.shown, sight.told, self.allowed_s(sight))
        elif sight.shown_healed is not None and sight.resolved is None:
            if not any(sight.awaited.is_in(labels) for labels in (*firing, *told)):
                sight.resolved = now
                self.say(f"gone:   {describe(sight.awaited)}")
            self.hold(sight, "not resolved", sight.shown_healed, sight.resolved,
                      self.resolves_s(sight))

    def bound_s(self, sight):
        """Two scrapes and the rule's `for`."""
        return 2 * self.engine.scrape_s + engines.for_of(sight.awaited.alert) / self.engine.factor

    def allowed_s(self, sight):
        return self.bound_s(sight) + self.grace_s

    def resolves_s(self, sight):
        """Two scrapes, behind those that the rule's expression still looks back to."""
        back = engines.range_of(sight.awaited.alert) / self.engine.factor
        return 2 * self.engine.scrape_s + back + self.grace_s

    @staticmethod
    def hold(sight, what, since, seen, limit_s):
        if seen is None and time.monotonic() - since > limit_s:
            raise NotSeen(f"{sight.fault.title}, {describe(sight.awaited)}: {what} "
                          f"within {limit_s:.1f} s")

    def check_nobody_else(self):
        """Whatever has fired within the story fired where it must."""
        back = engines.as_duration(time.monotonic() - min(self.broken.values()))
        fired = self.engine.query(
            f'count by (alertname, instance) (count_over_time(ALERTS{{alertstate="firing"}}[{back}]))')
        expected = {(sight.awaited.alert, sight.awaited.node.name) for sight in self.sights}
        expected |= {(alert, node.name) for fault in self.faults for node in fault.nodes
                     for alert in fault.consequences}
        strays = sorted({(one["metric"]["alertname"], one["metric"]["instance"]) for one in fired
                         if one["metric"]["alertname"] in NEVER_BY_LOAD} - expected)
        if strays:
            raise NotSeen(f"told though nothing of it was broken: {strays}")
        self.say("silent: these alerts on every other node")

    def table(self):
        """The rows for people, headings first; times in seconds."""
        rows = [("broken", "alert", "of", "node shows", "told", "bound", "gone")]
        for sight in self.sights:
            rows.append((
                sight.fault.title, sight.awaited.alert, place(sight.awaited),
                difference(self.broken.get(sight.fault), sight.shown),
                difference(sight.shown, sight.told), f"{self.bound_s(sight):.1f}",
                difference(sight.shown_healed, sight.resolved)))
        widths = [max(map(len, column)) for column in zip(*rows)]
        return "\n".join("  ".join(
            cell.ljust(width) if number < 3 else cell.rjust(width)
            for number, (cell, width) in enumerate(zip(row, widths))).rstrip() for row in rows)


def place(awaited):
    labels = dict(awaited.labels)
    port = labels.get("port", "")
    sub_port = f":{labels['sub_port']}" if "sub_port" in labels else ""
    return " ".join(filter(None, (awaited.node.name, port + sub_port, labels.get("reading"))))


def describe(awaited):
    return f"{awaited.alert} of {place(awaited)}"


def difference(since, at):
    return "-" if since is None or at is None else f"{at - since:.1f}"
