"""What programs with the former library and with that of today make of each other's regions.

Every message is compared whole, and what is refused has changed nothing. Repeated lines count once.
"""

import unittest

from peers import Region, enter_own_world

PUBLISHED = "done"
REFUSED = "refused"
LOCKED = "locked"
NO_INPUT = "error3"
NO_POINTER = "Pointer to pingpongbuffer is nullptr."
FAILED_START = ["Can't unlock sharedMemroy after initialisation",
                "Can't swap sharedMemory after initialisation"]


class Upgrade(unittest.TestCase):
    maxDiff = None

    def region(self, double_buffer=True):
        region = Region(double_buffer)
        self.addCleanup(lambda: self.assertEqual(region.close(), [], "something was left"))
        return region

    def former_says(self, region):
        """What the former library says of semaphores that are not of its format."""
        return [f'The semaphores of "{region.key}Semaphore" can\'t be used: System V key '
                f"{region.semaphore_key()} belongs to somebody else (ipcs -s). Choose another "
                "memory key."]

    def present_says(self, region):
        """What the library says of semaphores of the former format."""
        return [f'The semaphores of "{region.key}Semaphore" are of another memory format and in use. '
                "Run all programs with one version of the library."]

    def says(self, version, region):
        return self.former_says(region) if version == "former" else self.present_says(region)

    def check_left_as_it_was(self, region, creator, count):
        """The creator publishes as before, in the semaphores that it made."""
        self.assertEqual(creator.ask("publish", 9), PUBLISHED)
        self.assertEqual(creator.ask("read"), "9")
        self.assertEqual(creator.warnings(), [])
        self.assertEqual(region.semaphore_count(), count)


SEMAPHORES = {"former": 8, "present": 9}
BOTH_ORDERS = (("former", "present"), ("present", "former"))


class DoubleBuffer(Upgrade):
    def test_an_attacher_reads_and_may_not_write(self):
        for first, second in BOTH_ORDERS:
            with self.subTest(creator=first, attacher=second):
                region = self.region()
                creator = region.peer(first, "create")
                self.assertEqual((creator.state, creator.warnings()), ("ready", []))

                attacher = region.peer(second, "attach")

                self.assertEqual((attacher.state, attacher.warnings()),
                                 ("ready", self.says(second, region)))
                self.assertEqual(attacher.ask("read"), NO_INPUT)
                self.assertEqual(creator.ask("publish", 7), PUBLISHED)
                self.assertEqual(attacher.ask("read"), "7")
                self.assertEqual(attacher.warnings(), [])
                self.assertEqual(attacher.ask("publish", 8), REFUSED)
                self.assertEqual(attacher.ask("set", 8), REFUSED)
                self.assertEqual(attacher.warnings(), [NO_POINTER])
                self.assertEqual(creator.ask("read"), "7")
                self.check_left_as_it_was(region, creator, SEMAPHORES[first])
                self.assertEqual(attacher.ask("read"), "9")
                self.assertEqual(attacher.end(), 0)
                self.check_left_as_it_was(region, creator, SEMAPHORES[first])
                self.assertEqual(creator.end(), 0)

    def test_no_set_is_torn(self):
        for first, second in BOTH_ORDERS:
            with self.subTest(creator=first, attacher=second):
                region = self.region()
                creator = region.peer(first, "create")
                attacher = region.peer(second, "attach")
                creator.begin("repeat", "publish", 3000)

                found = attacher.ask("repeat", "read", 3000)

                self.assertEqual(found, "3000")
                self.assertEqual(creator.answer(), "3000")
                self.assertEqual(attacher.ask("read"), "3000")
                self.assertEqual((attacher.end(), creator.end()), (0, 0))

    def test_a_creator_beside_users_of_the_other_format_has_no_lock(self):
        for first, second in BOTH_ORDERS:
            with self.subTest(former_creator=first, creator=second):
                region = self.region()
                creator = region.peer(first, "create")
                reader = region.peer(first, "attach")
                self.assertEqual(creator.ask("publish", 7), PUBLISHED)

                other = region.peer(second, "create")

                self.assertEqual((other.state, other.warnings()),
                                 ("ready", self.says(second, region) + FAILED_START))
                self.assertEqual(other.ask("publish", 8), REFUSED)
                # Who comes to its memory finds what nobody has written.
                late = region.peer(second, "attach")
                self.assertEqual((late.state, late.warnings()), ("ready", self.says(second, region)))
                self.assertEqual(late.ask("read"), "0|")
                self.assertEqual(late.end(), 0)
                # The users of the replaced region go on among themselves.
                self.check_left_as_it_was(region, creator, SEMAPHORES[first])
                self.assertEqual(reader.ask("read"), "9")
                self.assertEqual(reader.ask("publish", 10), PUBLISHED)
                self.assertEqual(creator.ask("read"), "10")
                # The name is the other's; whoever made the semaphores still uses them.
                self.assertEqual((reader.end(), creator.end()), (0, 0))
                self.assertTrue(region.memory.exists())
                self.assertEqual(region.semaphore_count(), 0)
                self.assertEqual(other.end(), 0)
                self.assertFalse(region.memory.exists())

    def test_what_a_killed_former_creator_left_is_taken_over(self):
        for kind in ("attach", "create"):
            with self.subTest(kind=kind):
                region = self.region()
                former = region.peer("former", "create")
                self.assertEqual(former.ask("publish", 7), PUBLISHED)
                self.assertEqual(former.ask("stay", 8), PUBLISHED)
                former.kill()
                self.assertEqual(region.semaphore_count(), SEMAPHORES["former"])

                present = region.peer("present", kind)

                self.assertEqual((present.state, present.warnings()), ("ready", []))
                self.assertEqual(present.ask("read"), "7" if kind == "attach" else NO_INPUT)
                self.check_left_as_it_was(region, present, SEMAPHORES["present"])
                self.assertEqual(present.end(), 0)
                if kind == "attach":
                    # As with one version: the name belongs to a creator, and there is none any more.
                    region.memory.unlink()

    def test_what_a_killed_present_creator_left_stops_the_former_library(self):
        region = self.region()
        present = region.peer("present", "create")
        self.assertEqual(present.ask("publish", 7), PUBLISHED)
        present.kill()

        attacher = region.peer("former", "attach")

        self.assertEqual((attacher.state, attacher.warnings()), ("ready", self.former_says(region)))
        self.assertEqual(attacher.ask("read"), "7")
        self.assertEqual(attacher.ask("publish", 8), REFUSED)
        self.assertEqual(attacher.end(), 0)
        self.assertEqual(region.tool("rm", region.key)[0], 0)
        former = region.peer("former", "create")
        self.assertEqual((former.state, former.warnings()), ("ready", []))
        self.check_left_as_it_was(region, former, SEMAPHORES["former"])
        self.assertEqual(former.end(), 0)


class SingleBuffer(Upgrade):
    def test_a_creator_beside_users_of_the_other_format_has_no_lock(self):
        for first, second in BOTH_ORDERS:
            with self.subTest(former_creator=first, creator=second):
                region = self.region(double_buffer=False)
                creator = region.peer(first, "create")
                self.assertEqual(creator.ask("publish", 7), PUBLISHED)

                other = region.peer(second, "create")

                # There is nothing to swap, so that this says nothing.
                self.assertEqual((other.state, other.warnings()),
                                 ("ready", self.says(second, region) + FAILED_START[:1]))
                self.assertEqual(other.ask("read"), LOCKED)
                self.assertEqual(other.ask("publish", 8), REFUSED)
                self.check_left_as_it_was(region, creator, SEMAPHORES[first])
                self.assertEqual(creator.end(), 0)
                self.assertEqual(other.end(), 0)
                self.assertFalse(region.memory.exists())

    def test_an_attacher_may_neither_read_nor_write(self):
        for first, second in BOTH_ORDERS:
            with self.subTest(creator=first, attacher=second):
                region = self.region(double_buffer=False)
                creator = region.peer(first, "create")
                self.assertEqual(creator.ask("publish", 7), PUBLISHED)

                attacher = region.peer(second, "attach")

                self.assertEqual((attacher.state, attacher.warnings()),
                                 ("ready", self.says(second, region)))
                self.assertEqual(attacher.ask("read"), LOCKED)
                self.assertEqual(attacher.ask("publish", 8), REFUSED)
                self.assertEqual(creator.ask("read"), "7")
                self.check_left_as_it_was(region, creator, SEMAPHORES[first])
                self.assertEqual((attacher.end(), creator.end()), (0, 0))


class Tool(Upgrade):
    """The tool of today at a region that a program with the former library made."""

    def former(self, double_buffer):
        region = self.region(double_buffer)
        creator = region.peer("former", "create")
        self.assertEqual(creator.ask("publish", 7), PUBLISHED)
        return region, creator

    def no_lock(self, region):
        return (4, "", f"tessel: {region.file}: no lock on region '{region.key}'\n")

    def check_doctor(self, region):
        """One error, which names the set that is in the way."""
        code, output, messages = region.tool("doctor", None)
        self.assertEqual((code, messages), (1, ""))
        errors = [line for line in output.splitlines() if line.startswith("error ")]
        self.assertEqual(errors, [
            f"error semaphores-taken {region.key}: its System V key "
            f"0x{region.semaphore_key() & 0xFFFFFFFF:08x} belongs to other semaphores, of another "
            "program or another version of the memory format: nobody can lock the region; cure: "
            f"see whose they are: ipcs -s -i {region.semaphore_set()[0]}; else choose another memory key"])

    def test_a_double_buffer_is_shown_and_not_written(self):
        region, creator = self.former(double_buffer=True)

        code, output, messages = region.tool("info", None)

        self.assertEqual((code, messages), (0, ""))
        self.assertIn(f"{region.key}SharedMemory, {region.memory.stat().st_size} bytes; exists\n", output)
        self.assertEqual(region.tool("get", None, "count/0"),
                         (0, "URL      VALUE  UNIT  STATE\ncount/0      7        valid\n", ""))
        self.assertEqual(region.tool("set", None, "count/0", "8"), self.no_lock(region))
        self.check_doctor(region)
        self.check_left_as_it_was(region, creator, SEMAPHORES["former"])
        self.assertEqual(creator.end(), 0)

    def test_nobody_is_told_that_a_double_buffer_is_a_single_one(self):
        region, creator = self.former(double_buffer=True)

        code, output, _ = region.tool("explain", None, "count/0")

        self.assertEqual(code, 0)
        self.assertIn("! the region has no semaphores that may be looked at", output)
        self.assertIn("Set           unknown\n", output)
        self.assertEqual(creator.end(), 0)

    def test_what_the_former_library_does_not_say_is_not_waited_for_without_end(self):
        for double_buffer in (True, False):
            with self.subTest(double_buffer=double_buffer):
                region, creator = self.former(double_buffer)

                told = region.tool("wait", "--timeout", "0", None)

                self.assertEqual(told, (6, "", f"tessel: {region.file}: nothing was published in "
                                               f"region '{region.key}' within 0 s\n"))
                self.assertEqual(creator.end(), 0)

    def test_a_single_buffer_is_neither_shown_nor_written(self):
        region, creator = self.former(double_buffer=False)

        refused = region.tool("get", None, "count/0")

        self.assertEqual(refused, (4, "", f"tessel: {region.file}: no region for key '{region.key}': "
                                   + self.present_says(region)[0]
                                   + "; Can not initialize Buffer Handler.; "
                                     "Can not create process data memory.\n"))
        self.assertEqual(region.tool("set", None, "count/0", "8"), self.no_lock(region))
        self.check_doctor(region)
        self.check_left_as_it_was(region, creator, SEMAPHORES["former"])
        self.assertEqual(creator.end(), 0)

    def test_only_force_removes_what_does_not_say_that_it_is_a_region(self):
        region, creator = self.former(double_buffer=True)

        refused = region.tool("rm", region.key)

        self.assertEqual(refused, (5, "", f"tessel: '{region.key}' has no semaphores and does not say "
                                   "that it is a region, so that it may be the memory of another "
                                   "program; give --force if it is not\n"))
        self.assertTrue(region.memory.exists())
        self.check_left_as_it_was(region, creator, SEMAPHORES["former"])
        self.assertEqual(region.tool("rm", "--force", region.key),
                         (0, f"removed memory of '{region.key}'\n", ""))
        self.check_left_as_it_was(region, creator, SEMAPHORES["former"])
        self.assertEqual(creator.end(), 0)

    def test_a_tool_that_creates_ends_at_once(self):
        region, creator = self.former(double_buffer=True)

        refused = region.tool("hold", None)

        said = "; ".join(self.present_says(region) + FAILED_START)
        self.assertEqual(refused,
                         (4, "", f"tessel: {region.file}: no lock on region '{region.key}': {said}\n"))
        # Creating comes before locking: the name is gone, and the region lives on without one.
        self.assertFalse(region.memory.exists())
        self.check_left_as_it_was(region, creator, SEMAPHORES["former"])
        self.assertEqual(creator.end(), 0)


if __name__ == "__main__":
    enter_own_world()
    unittest.main(verbosity=2)
