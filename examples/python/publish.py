"""Creates the region of the tank and publishes, in two ways: publish.py DESCRIPTION"""

import asyncio
import sys

import tessel


#! [write]
def publish(region):
    region.publish({"tank/level": 1.25, "tank/temperature": tessel.State.SENSOR_BREAKAGE})
    with region.write() as values:
        for url, value in (("tank/level", 1.5), ("tank/temperature", 21.0)):
            values[url] = value


#! [write]


#! [async]
async def follow(region):
    """Ends when the region is closed."""
    async for taken in region.watch("tank/level"):
        print("level", taken["tank/level"].value)


async def main(path):
    with tessel.create(path) as region:
        following = asyncio.create_task(follow(region))
        for level in (1.0, 2.0, 3.0):
            region.publish({"tank/level": level})
            await asyncio.sleep(0.1)
    await following


#! [async]

if __name__ == "__main__":
    with tessel.create(sys.argv[1]) as tank:
        publish(tank)
        print(*tank.read().items(), sep="\n")
    asyncio.run(main(sys.argv[1]))
