"""Ports for asyncio.

    async with kyserial.aio.AsyncPort(camera, "uart0") as port:
        await port.write(b"STATUS?\\r\\n")
        print(await port.readline())

    reader, writer = await kyserial.aio.open_streams(camera, "uart0")
"""
import asyncio
import threading
from concurrent.futures import ThreadPoolExecutor
from typing import Any, Callable, List, Optional, Tuple

from . import errors
from .device import Device
from .port import Port


def _ignore(future: Any) -> None:
    """Takes the failure of a read that nobody waits for."""
    if not future.cancelled():
        future.exception()


class AsyncPort:
    """A Port whose read and write are awaited. One task reads while another writes. Arguments are those of Port.

    A read that is cancelled gives up its wait; bytes that come meanwhile stay for the next one.
    """

    def __init__(self, device: Device, port: Any, **options: Any) -> None:
        self.port = Port(device, port, **options)
        # A thread of its own each way: the library's calls block, and a read must not keep a write waiting.
        self._readers = ThreadPoolExecutor(1, "kyserial read")
        self._writers = ThreadPoolExecutor(1, "kyserial write")

    async def _read(self, call: Callable[..., bytes], *arguments: Any) -> bytes:
        lock = threading.Lock()
        taken: List[bytes] = []
        is_cancelled = False

        def run() -> bytes:
            data = b"" if is_cancelled else call(*arguments)
            with lock:
                if is_cancelled:
                    self.port._returned += data  # nobody waits for them any more
                else:
                    taken.append(data)
            return data

        future = asyncio.get_running_loop().run_in_executor(self._readers, run)
        try:
            return await asyncio.shield(future)
        except asyncio.CancelledError:
            with lock:
                is_cancelled = True
                self.port._returned += b"".join(taken)
            if not future.done():
                self.port.cancel_read()
                future.add_done_callback(_ignore)
            raise

    async def read(self, size: int = 1) -> bytes:
        """As Port.read()."""
        return await self._read(self.port.read, size)

    async def readline(self) -> bytes:
        """Up to and with the end of a line."""
        return await self._read(self.port.read_until, b"\n")

    async def read_until(self, expected: bytes = b"\n", size: Optional[int] = None) -> bytes:
        """As Port.read_until()."""
        return await self._read(self.port.read_until, expected, size)

    async def write(self, data: bytes) -> int:
        """As Port.write()."""
        return await asyncio.get_running_loop().run_in_executor(self._writers, self.port.write, data)

    async def close(self) -> None:
        """As Port.close()."""
        await asyncio.get_running_loop().run_in_executor(self._writers, self.port.close)
        self._readers.shutdown(wait=False)
        self._writers.shutdown(wait=False)

    async def __aenter__(self) -> "AsyncPort":
        return self

    async def __aexit__(self, *_: Any) -> None:
        await self.close()


class _PortTransport(asyncio.Transport):
    """Carries bytes between a port and a protocol: a thread reads, another one writes."""

    def __init__(self, loop: asyncio.AbstractEventLoop, protocol: asyncio.Protocol, port: Port) -> None:
        super().__init__({"port": port})
        self._loop, self._protocol, self._port = loop, protocol, port
        self._writers = ThreadPoolExecutor(1, "kyserial write")
        self._closing = False
        port.timeout = None
        loop.call_soon(protocol.connection_made, self)
        loop.call_soon(threading.Thread(target=self._run, name="kyserial read", daemon=True).start)

    def _run(self) -> None:
        failure: Optional[Exception] = None
        try:
            while not self._closing:
                data = self._port.read(1)
                data += self._port.read(self._port.in_waiting) if data else b""
                if data:
                    self._loop.call_soon_threadsafe(self._protocol.data_received, data)
        except (errors.KySerialError, ValueError) as error:
            failure = None if self._closing else error
        try:
            self._loop.call_soon_threadsafe(self._end, failure)
        except RuntimeError:
            pass  # the loop has ended before

    def _end(self, failure: Optional[Exception]) -> None:
        self._closing = True
        self._writers.shutdown(wait=False)
        self._port.close()
        self._protocol.connection_lost(failure)

    def write(self, data: Any) -> None:
        """Has bytes sent, in the order of the calls."""
        self._writers.submit(self._send, bytes(data))

    def _send(self, data: bytes) -> None:
        try:
            self._port.write(data)
        except errors.KySerialError:
            pass  # the reading thread sees that the camera is away, and ends the transport with that

    def is_closing(self) -> bool:
        """Whether close() was called, or the camera is lost."""
        return self._closing

    def close(self) -> None:
        """Sends what waits, then gives the port back."""
        if not self._closing:
            self._closing = True
            self._writers.submit(self._port.cancel_read)

    def abort(self) -> None:
        """Gives the port back at once."""
        self._closing = True
        self._port.cancel_read()


async def open_streams(device: Device, port: Any, **options: Any) -> Tuple[asyncio.StreamReader, asyncio.StreamWriter]:
    """A port as asyncio's streams. A lost camera ends the reader with NoConnectionError."""
    loop = asyncio.get_running_loop()
    reader = asyncio.StreamReader()
    protocol = asyncio.StreamReaderProtocol(reader)
    transport = _PortTransport(loop, protocol, Port(device, port, **options))
    return reader, asyncio.StreamWriter(transport, protocol, reader, loop)
