"""How regions, sets and the interpreter end, in whatever order."""

import asyncio
import gc
import os
import signal
import threading
import time

import pytest

import tessel
from conftest import LONGEST, attempts

#: A process that is nearly always inside the lock of the region.
BUSY_WRITER = """
    import sys, tessel
    region = tessel.attach(sys.argv[1])
    writes = [region._checked(url, 1, True) for url in region.urls]
    print("ready", flush=True)
    while True:
        region._native.publish(writes)
    """


def resident():
    """Memory of this process in KiB."""
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024


@pytest.mark.parametrize("left", ["read = region.read()", "watch = region.watch(); next(watch)", "region.fileno()",
                                  "region.me = region"])
def test_the_interpreter_ends_with_open_regions(plant, other, left):
    ended = other(f"""
        import sys, tessel
        region = tessel.create(sys.argv[1])
        {left}
        """, plant)
    assert ended.end() == (0, "", "")


@pytest.mark.parametrize("busy", ["region.wait(region.generation)", "next(watch)", "next(late)",
                                  "insist()"])
def test_the_interpreter_ends_beside_threads_that_go_on(plant, other, busy):
    """Threads that Python does not wait for: they end with the process, and the region goes nevertheless."""
    ended = other(f"""
        import sys, tessel, threading
        region = tessel.create(sys.argv[1])
        watch, late = region.watch(), region.watch(interval=3600)
        next(watch), next(late)
        began = threading.Event()
        def insist():
            while True:
                try:
                    region.publish({{"count": 1}})
                    region.read()
                except tessel.ClosedError:
                    pass
        def run():
            began.set()
            try:
                {busy}
            except (tessel.ClosedError, StopIteration):
                pass
        threading.Thread(target=run, daemon=True).start()
        began.wait()
        print("over", flush=True)
        """, plant)
    assert ended.end() == (0, "over\n", "")


def test_a_child_that_ends_leaves_the_region_to_its_parent(plant, other):
    ended = other("""
        import os, sys, tessel
        region = tessel.create(sys.argv[1])
        if os.fork() == 0:
            sys.exit(0)
        print(os.waitstatus_to_exitcode(os.wait()[1]))
        region.publish({"count": 4})
        with tessel.attach(sys.argv[1]) as seen:
            print(seen["count"].value)
        """, plant)
    assert ended.end() == (0, "0\n4\n", "")


def test_a_set_is_dropped_while_another_thread_waits_for_the_lock(write_description, other):
    """What drops it has the interpreter's lock: all threads would stand still until that wait is over."""
    path = write_description({f"value{number}": ("int32", {}) for number in range(2000)})
    with tessel.create(path) as region:
        region.publish({"value0": 1})
        holder = other(BUSY_WRITER, path)
        assert holder.line() == "ready"
        outcomes = []
        for attempt in attempts():
            kept = region.read()
            region.wait(region.generation, timeout=LONGEST)
            time.sleep(attempt % 10 * 2e-5)
            holder.process.send_signal(signal.SIGSTOP)
            os.waitid(os.P_PID, holder.process.pid, os.WSTOPPED)
            outcome = []

            def publish():
                try:
                    region.publish({"value0": 2})
                    outcome.append("published")
                except tessel.TimedOutError:
                    outcome.append("timed out")

            publisher = threading.Thread(target=publish)
            publisher.start()
            publisher.join(0.5)
            waits = publisher.is_alive()
            del kept
            holder.process.send_signal(signal.SIGCONT)
            publisher.join(LONGEST)
            if waits and outcome == ["published"]:
                # Its five seconds were not over.
                return
            # They may have been without anybody's fault, on a machine that had other work for so long.
            outcomes += outcome if waits else []
        raise AssertionError(f"the other process was never met inside its lock, or never given it back: {outcomes}")


def test_an_asynchronous_loop_with_an_interval_ends_with_close(plant):
    async def run(region):
        generations, began = [], asyncio.Event()

        async def collect():
            async for taken in region.watch(interval=3600):
                generations.append(taken.generation)
                began.set()

        task = asyncio.ensure_future(collect())
        await began.wait()
        await asyncio.sleep(0)  # it is in the interval
        region.close()
        await asyncio.wait_for(task, LONGEST)
        return generations

    assert asyncio.run(run(tessel.create(plant))) == [1]


def test_a_bound_that_is_no_number_is_refused(plant):
    """Nothing is less than it, so that a wait would have no end."""
    with tessel.create(plant) as region:
        for ask in (lambda: region.wait(1, float("nan")), lambda: region.watch(interval=float("nan"))):
            with pytest.raises(tessel.UseError, match="'nan' is no time in seconds") as caught:
                ask()
            assert caught.value.exit_code == 2 and isinstance(caught.value, ValueError)


def test_memory_stays_the_same_over_many_reads(plant):
    with tessel.create(plant) as region:
        region.publish({"count": 1, "name": "pump"})

        def use(times):
            for number in range(times):
                assert region.read(["count", "name"])["name"].value == "pump"
                if number % 50 == 0:
                    tessel.attach(plant).read()
                    next(region.watch())

        use(2000)
        gc.collect()
        before = resident()
        use(20000)
        gc.collect()
        # A set that is kept holds more than a kilobyte.
        assert resident() - before < 2000
