"""The programs of this folder, as processes."""
import contextlib
import hashlib
import json
import pathlib
import signal
import subprocess
import tempfile

SMALL = bytes(4096)
FILE = ("--file", "small", "--sum", hashlib.sha256(SMALL).hexdigest())


class Server:
    """`serve-with POOL`, in a process of its own."""

    def __init__(self, programs, pool, root):
        command = [programs / "serve-with", pool, root]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        self.load_program = programs / "http-load"
        self.port = int(self.process.stdout.readline())

    def load(self, *options):
        """What http-load reports. Raises RuntimeError if a request wasn't answered as it should be."""
        command = [self.load_program, str(self.port), *FILE, *map(str, options)]
        done = subprocess.run(command, stdout=subprocess.PIPE, text=True)
        if done.returncode != 0:
            raise RuntimeError(f"{command} ended with {done.returncode}: {done.stdout}")
        return json.loads(done.stdout)

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(timeout=60)
        finally:
            self.process.kill()
            self.process.wait()


@contextlib.contextmanager
def serving(programs, *pools):
    """A server of each pool, by name."""
    with tempfile.TemporaryDirectory() as root, contextlib.ExitStack() as stack:
        (pathlib.Path(root) / "small").write_bytes(SMALL)
        servers = {}
        for pool in pools:
            servers[pool] = Server(programs, pool, root)
            stack.callback(servers[pool].end)
        yield servers
