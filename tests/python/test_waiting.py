"""Waiting for sets: in a call, in loops, by a descriptor; and how each of them ends."""

import asyncio
import os
import select
import signal
import threading
import time

import pytest

import tessel
from conftest import LONGEST, attempts


def test_a_set_that_is_there_ends_the_wait_at_once(plant):
    with tessel.create(plant) as region:
        assert region.wait() == 1
        region.publish({"count": 1})
        assert region.wait(1) == 2 and region.wait(1, timeout=0) == 2


def test_a_bound_raises(plant):
    with tessel.create(plant) as region:
        for timeout in (0, 0.05, 0.3):
            begin = time.monotonic()
            with pytest.raises(TimeoutError, match="no set was published in") as caught:
                region.wait(1, timeout)
            assert time.monotonic() - begin >= timeout
            assert caught.type is tessel.TimedOutError and caught.value.exit_code == 6


def test_bounds_and_generations_beyond_all_clocks(plant):
    with tessel.create(plant) as region:
        for timeout in (10**400, float("inf"), 1e300):
            assert region.wait(0, timeout) == 1
        assert next(region.watch(interval=10**400)).generation == 1
        for seen in (-1, 2**64):
            with pytest.raises(tessel.UseError, match=f"{seen} is no generation; one counts from 0 on"):
                region.wait(seen, 0)
        assert region.wait(2**64 - 1, 0) == 1


@pytest.mark.parametrize("waits_on_main_thread", [True, False])
def test_other_threads_go_on_during_a_wait(plant, waits_on_main_thread):
    """Neither would end if the wait kept the interpreter: the one counts, and publishes at its end."""
    with tessel.create(plant) as region:
        generations = []

        def count():
            number = 0
            while number < 100_000:
                number += 1
            region.publish({"count": number})

        def wait():
            generations.append(region.wait(1, timeout=LONGEST))

        here, there = (wait, count) if waits_on_main_thread else (count, wait)
        thread = threading.Thread(target=there)
        thread.start()
        here()
        thread.join()
        assert generations == [2] and region["count"].value == 100_000


def test_another_process_wakes(plant, other):
    with tessel.create(plant) as region:
        waiter = other("""
            import sys, tessel
            with tessel.attach(sys.argv[1]) as region:
                print("ready", flush=True)
                print(region.wait(1, timeout=120), region["count"].value, flush=True)
            """, plant)
        assert waiter.line() == "ready"
        region.publish({"count": 5})
        assert waiter.end() == (0, "2 5\n", "")


@pytest.mark.parametrize("waiting", [
    "region.wait(1)",
    "region.wait(1, timeout=3600)",
    "[None for one in region.watch()]",
    "[None for one in region.watch(interval=3600)]",
])
def test_an_interrupt_ends_a_wait(plant, other, waiting):
    with tessel.create(plant):
        waiter = other(f"""
            import sys, tessel
            region = tessel.attach(sys.argv[1])
            try:
                print("ready", flush=True)
                {waiting}
            except KeyboardInterrupt:
                print("interrupted", flush=True)
            """, plant)
        assert waiter.line() == "ready"
        waiter.process.send_signal(signal.SIGINT)
        assert waiter.end() == (0, "interrupted\n", "")


def test_a_signal_handler_runs_during_a_wait(plant):
    with tessel.create(plant) as region:
        former = signal.signal(signal.SIGUSR1, lambda number, frame: region.publish({"count": 1}))
        try:
            threading.Thread(target=os.kill, args=(os.getpid(), signal.SIGUSR1)).start()
            assert region.wait(1, timeout=LONGEST) == 2
        finally:
            signal.signal(signal.SIGUSR1, former)


def test_closing_ends_the_waits_of_other_threads(plant):
    region = tessel.create(plant)
    sets = region.watch()
    ends = []

    def wait():
        try:
            region.wait(1)
        except tessel.ClosedError:
            ends.append("wait")

    def watch():
        # As many as came before the end.
        assert [taken.generation for taken in sets] in ([], [1])
        ends.append("watch")

    threads = [threading.Thread(target=wait), threading.Thread(target=watch)]
    for thread in threads:
        thread.start()
    region.close()
    for thread in threads:
        thread.join(LONGEST)
    assert sorted(ends) == ["wait", "watch"]


def test_a_loop_sees_each_set_once(plant):
    with tessel.create(plant) as region:
        seen = []
        for taken in region.watch(["count"]):
            seen.append((taken.generation, taken["count"].value))
            if len(seen) == 4:
                break
            region.publish({"count": len(seen)})
        assert seen == [(1, None), (2, 1), (3, 2), (4, 3)]


def test_only_the_newest_of_several_sets_is_seen(plant):
    with tessel.create(plant) as region:
        watch = region.watch()
        for number in range(5):
            region.publish({"count": number})
        assert next(watch)["count"].value == 4
        region.publish({"count": 8})
        region.publish({"count": 9})
        assert next(watch)["count"].value == 9


def test_an_interval_lies_between_two_sets(plant):
    with tessel.create(plant) as region:
        watch = region.watch(interval=0.2)
        next(watch)
        begin = time.monotonic()
        region.publish({"count": 1})
        region.publish({"count": 2})
        assert next(watch)["count"].value == 2
        assert time.monotonic() - begin > 0.15


def test_a_watch_can_be_closed_alone(plant):
    with tessel.create(plant) as region:
        watch = region.watch()
        next(watch)
        watch.close()
        assert list(watch) == []
        assert region.wait(0) == 1


def test_an_asynchronous_loop_sees_each_set_once(plant):
    async def collect(region):
        seen = []
        async for taken in region.watch("count"):
            seen.append((taken.generation, taken["count"].value))
            if len(seen) == 4:
                break
            region.publish({"count": len(seen)})
        return seen

    with tessel.create(plant) as region:
        assert asyncio.run(collect(region)) == [(1, None), (2, 1), (3, 2), (4, 3)]


def test_an_asynchronous_loop_sees_no_set_twice_beside_a_writer(plant, other):
    """A writer at full speed: generations only rise, and the last one is seen."""
    with tessel.create(plant) as region:
        async def collect():
            generations = []
            async for taken in region.watch("count"):
                generations.append(taken.generation)
                if taken["count"].value == 999:
                    return generations

        writer = other("""
            import sys, tessel
            with tessel.attach(sys.argv[1]) as region:
                for number in range(1000):
                    region.publish({"count": number})
            """, plant)
        generations = asyncio.run(asyncio.wait_for(collect(), LONGEST))
        assert generations == sorted(set(generations)) and generations[-1] == 1001
        assert writer.end() == (0, "", "")


def test_an_asynchronous_loop_ends_with_close(plant):
    async def run(region):
        generations, began = [], asyncio.Event()

        async def collect():
            async for taken in region.watch():
                generations.append(taken.generation)
                began.set()

        task = asyncio.ensure_future(collect())
        await began.wait()
        region.close()
        await asyncio.wait_for(task, LONGEST)
        return generations

    assert asyncio.run(run(tessel.create(plant))) == [1]


def test_an_asynchronous_wait_can_be_cancelled(plant):
    async def run(region):
        watch = region.watch()
        await watch.__anext__()
        with pytest.raises(asyncio.TimeoutError):
            await asyncio.wait_for(watch.__anext__(), 0.05)
        region.publish({"count": 3})
        return (await watch.__anext__())["count"].value

    with tessel.create(plant) as region:
        assert asyncio.run(run(region)) == 3


def test_a_descriptor_tells_of_sets(plant):
    def readable(region, timeout):
        return select.select([region], [], [], timeout)[0] == [region]

    with tessel.create(plant) as region:
        assert readable(region, LONGEST)
        region.read()
        assert not readable(region, 0)
        region.publish({"count": 1})
        assert readable(region, LONGEST)
        assert region.wait(1) == 2
        assert not readable(region, 0)


def test_a_region_that_goes_is_told(plant, other):
    owner = tessel.create(plant)
    with tessel.attach(plant) as region:
        seen = region.generation
        watch = region.watch()
        next(watch)
        owner.close()
        with pytest.raises(tessel.MissingError, match="has gone, its creator has ended") as caught:
            region.wait(seen, timeout=LONGEST)
        assert caught.value.exit_code == 3
        with pytest.raises(tessel.MissingError):
            next(watch)


def test_a_region_that_is_replaced_is_told_and_can_be_attached_anew(plant):
    former = tessel.create(plant)
    with tessel.attach(plant) as region:
        seen = region.generation
        with tessel.create(plant) as owner:
            with pytest.raises(tessel.LayoutMismatchError, match="was replaced by a new one; attach again") as caught:
                region.wait(seen, timeout=LONGEST)
            assert caught.value.exit_code == 8
            owner.publish({"count": 6})
            with tessel.attach(plant) as anew:
                assert anew["count"].value == 6
            former.close()


def test_a_forked_child_is_told_to_attach_anew(plant):
    with tessel.create(plant) as region:
        region.publish({"count": 2**53 + 1})
        kept = region.read()
        region.fileno()
        reading, writing = os.pipe()
        child = os.fork()
        if child == 0:
            # Whatever happens here must not come back into pytest.
            try:
                said = []
                for ask in (region.read, region.wait, region.fileno, region.watch, region.close,
                            lambda: kept["count"], lambda: region.publish({"count": 1}), lambda: region.closed):
                    try:
                        ask()
                        said.append("nothing")
                    except tessel.ForkedError as error:
                        said.append(str(error))
                with tessel.attach(plant) as own:
                    said.append(str(own["count"].value))
                del region, kept
                os.write(writing, "\n".join(said).encode())
            finally:
                os._exit(0)
        os.close(writing)
        with os.fdopen(reading) as answer:
            lines = answer.read().splitlines()
        os.waitpid(child, 0)
        told = "this region was opened before a fork and belongs to the parent process; attach anew in the child"
        assert lines == [told] * 8 + [str(2**53 + 1)]
        # The parent has lost nothing by it.
        region.publish({"count": 3})
        assert region["count"].value == 3 and plant.exists()
        tessel.attach(plant).close()


def test_a_child_does_not_wait_for_a_thread_that_is_not_there(plant):
    """A fork may come while a thread is about to begin the first wait."""
    with tessel.create(plant) as region:
        with region._lock:
            child = os.fork()
            if child == 0:
                code = 1
                signal.alarm(60)
                try:
                    region.wait()
                except tessel.ForkedError:
                    code = 0
                finally:
                    os._exit(code)
        assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0


def test_threads_share_a_region(plant):
    """Sets are whole, whoever reads them, while two threads publish and one decodes beside."""
    with tessel.create(plant) as region:
        region.publish({"count": 0, "total": 0})
        broken = []

        def publish(first):
            for number in range(first, 400, 2):
                region.publish({"count": number, "total": number})

        def read():
            for _ in range(400):
                taken = region.read(["count", "total"])
                if taken["count"].value != taken["total"].value:
                    broken.append(dict(taken))

        threads = [threading.Thread(target=publish, args=(first,)) for first in (0, 1)]
        threads += [threading.Thread(target=read) for _ in range(2)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(LONGEST)
        assert broken == [] and region.generation == 402


def test_a_lock_that_is_held_raises(write_description, other):
    """A process that is stopped inside its lock: after five seconds the wait for it is over."""
    path = write_description({f"value{number}": ("int32", {}) for number in range(2000)})
    with tessel.create(path) as region:
        holder = other("""
            import sys, tessel
            region = tessel.attach(sys.argv[1])
            writes = [region._checked(url, 1, True) for url in region.urls]
            print("ready", flush=True)
            while True:
                region._native.publish(writes)
            """, path)
        assert holder.line() == "ready"
        # It is nearly always inside; where it is stopped is left to chance, so it is tried until it is.
        for attempt in attempts():
            # It has come round since: stopped and continued at once it would stand where it stood.
            region.wait(region.generation, timeout=LONGEST)
            time.sleep(attempt % 10 * 2e-5)
            holder.process.send_signal(signal.SIGSTOP)
            os.waitid(os.P_PID, holder.process.pid, os.WSTOPPED)
            begin = time.monotonic()
            try:
                region.publish({"value0": 2})
            except tessel.TimedOutError as error:
                assert "another process has held the lock" in str(error) and error.exit_code == 6
                assert time.monotonic() - begin >= 4.9
                return
            finally:
                holder.process.send_signal(signal.SIGCONT)
        raise AssertionError("the other process was never met inside its lock")
