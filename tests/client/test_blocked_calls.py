"""Transfers that begin and do not return, of 1, 2, 4 and 8 modules: from the start, in operation and
at the end. The other modules are up all the while, and the driver ends in time."""

import signal

import support

COUNTS = (1, 2, 4, 8)


class BlockedCalls(support.ShelfTest):
    def shelf_of(self, count):
        self.shelf.cages.clear()
        self.good = self.add_module("iivi-new-map")
        self.blocked = [self.add_file(slot=3) for _ in range(count)]

    def stall(self):
        """From here on nobody who reads or writes these modules' memory comes back."""
        for cage in self.blocked:
            cage.module.with_name(cage.module.name + ".stalls").touch()

    def end(self):
        self.driver.process.send_signal(signal.SIGTERM)
        self.assertEqual(self.driver.process.wait(30), 0)

    def free(self):
        for cage in self.blocked:
            cage.module.with_name(cage.module.name + ".stalls").unlink(missing_ok=True)

    def test_from_the_start_to_the_end(self):
        for count in COUNTS:
            with self.subTest(modules=count):
                self.shelf_of(count)
                self.stall()
                self.start()
                self.wait_for_state(self.good, "up", 60)
                for cage in self.blocked:
                    self.assertNotEqual(self.driver.ports()[cage.name]["state"], "up")
                self.end()
                self.free()

    def test_in_operation(self):
        for count in COUNTS:
            with self.subTest(modules=count):
                self.shelf_of(count)
                self.start()
                for cage in (self.good, *self.blocked):
                    self.wait_for_state(cage, "up", 60)
                self.stall()
                for cage in self.blocked:
                    self.wait_for_state(cage, "failing", 60)
                self.driver.lumctl("set", self.good.name, "threshold=3")
                self.wait_for_state(self.good, "up", 60)
                self.free()
                for cage in self.blocked:
                    self.wait_for_state(cage, "up", 60)
                self.stall()
                self.end()
                self.free()
