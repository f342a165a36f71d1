"""Ports for asyncio."""
import asyncio

import pytest

import kyserial
from kyserial import aio

PATIENCE = 20


def run(task):
    return asyncio.run(asyncio.wait_for(task, PATIENCE))


def test_a_port_is_awaited(camera):
    camera.plug("uart0", "lens")

    async def talk():
        async with aio.AsyncPort(camera, "uart0") as port:
            read = asyncio.ensure_future(port.readline())  # waits while the other way is written
            await asyncio.sleep(0)
            assert await port.write(b"ID?\r\n") == 5
            assert await read == b"ID KYLENS 1.0\r\n"
            await port.write(b"ID?\r\n")
            assert await port.read(2) == b"ID"
            assert await port.read_until(b"1.0") == b" KYLENS 1.0"

    run(talk())
    kyserial.Port(camera, "uart0").close()


def test_a_read_that_is_cancelled_leaves_the_bytes_to_the_next(camera):
    async def cancel():
        async with aio.AsyncPort(camera, "bulk1") as port:
            with pytest.raises(asyncio.TimeoutError):
                await asyncio.wait_for(port.read(1), 0.05)
            camera.inject("bulk1", b"x")
            while True:
                data = await port.read(1)
                if data:
                    return data

    assert run(cancel()) == b"x"


def test_a_lost_camera_raises(camera):
    async def lose():
        async with aio.AsyncPort(camera, "bulk1") as port:
            camera.set_connected(False)
            with pytest.raises(ConnectionError):
                await port.read(1)

    run(lose())
    camera.set_connected(True)


def test_streams_talk_to_the_lens(camera):
    camera.plug("uart0", "lens")

    async def talk():
        reader, writer = await aio.open_streams(camera, "uart0")
        for _ in range(3):
            writer.write(b"ID?\r\n")
            await writer.drain()
            assert await reader.readline() == b"ID KYLENS 1.0\r\n"
        writer.close()
        await writer.wait_closed()

    run(talk())
    kyserial.Port(camera, "uart0").close()


def test_streams_end_with_a_lost_camera(camera):
    async def lose():
        reader, writer = await aio.open_streams(camera, "bulk1")
        camera.set_connected(False)
        with pytest.raises(ConnectionError):
            await reader.read(1)
        assert writer.is_closing()

    run(lose())
    camera.set_connected(True)
    kyserial.Port(camera, "bulk1").close()
