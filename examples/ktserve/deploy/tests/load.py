"""A client of HTTP that keeps requests coming and keeps what became of each."""
import asyncio
import collections
import itertools
import threading
import time

# `began` and `ended` are of time.monotonic(), `status` is 0 and `why` says more where there was no whole answer.
Result = collections.namedtuple("Result", "path began ended status head body why")


async def request(port, path, timeout=60):
    """One request over a connection of its own."""
    began = time.monotonic()
    writer = None
    try:
        async with asyncio.timeout(timeout):
            reader, writer = await asyncio.open_connection("127.0.0.1", port)
            writer.write(f"GET {path} HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n".encode())
            head, _, body = (await reader.read()).decode().partition("\r\n\r\n")
        status = int(head.split()[1])
        fields = dict(line.lower().split(": ", 1) for line in head.split("\r\n")[1:])
        if len(body) != int(fields["content-length"]):
            raise ValueError(f"a part of an answer: {head}\n{body}")
        return Result(path, began, time.monotonic(), status, fields, body, "")
    except (OSError, ValueError, LookupError, TimeoutError) as error:
        return Result(path, began, time.monotonic(), 0, {}, "", repr(error))
    finally:
        if writer:
            writer.close()


def all_at_once(port, paths):
    async def gather():
        return await asyncio.gather(*(request(port, path) for path in paths))

    return asyncio.run(gather())


class Load:
    """For a scope: `clients` of them, each with its next request once the last one has ended, over `expected`: the
    paths, and what the body of the answer must be."""

    def __init__(self, port, clients, expected):
        self.results = []  # grows only, so that it may be read meanwhile
        self._port = port
        self._expected = expected
        self._paths = itertools.cycle(expected)
        self._ending = False
        self._thread = threading.Thread(target=lambda: asyncio.run(self._all(clients)))

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._ending = True
        self._thread.join()

    def failed(self):
        return [one for one in list(self.results) if (one.status, one.body) != (200, self._expected[one.path])]

    async def _all(self, clients):
        await asyncio.gather(*(self._client() for _ in range(clients)))

    async def _client(self):
        while not self._ending:
            self.results.append(await request(self._port, next(self._paths)))
