"""Instances of ktserve, and what stands in front of them, as processes that end with the test."""
import contextlib
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import time
import urllib.request

DEPLOY = pathlib.Path(__file__).resolve().parents[1]
LIMIT_S = 60  # a watchdog: for what must come true
# Without a proxy that the environment may name.
_opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))


def program(name):
    """Its path; where it is missing, the test is skipped."""
    found = shutil.which(name, path=os.environ.get("PATH", "") + ":/usr/sbin")
    if not found:
        print(f"skipped: there is no {name}")
        sys.exit(77)
    return found


def free_ports(count):
    with contextlib.ExitStack() as stack:
        sockets = [stack.enter_context(socket.socket()) for _ in range(count)]
        for one in sockets:
            one.bind(("127.0.0.1", 0))
        return [one.getsockname()[1] for one in sockets]


def get(port, path):
    with _opener.open(f"http://127.0.0.1:{port}{path}", timeout=LIMIT_S) as answer:
        return answer.read().decode()


def await_true(what, condition):
    """`condition` may fail with OSError meanwhile: nobody listens yet."""
    until = time.monotonic() + LIMIT_S
    while time.monotonic() < until:
        with contextlib.suppress(OSError):
            if condition():
                return
        time.sleep(0.02)
    raise AssertionError(f"never came true: {what}")


class Process:
    """Killed at the end of the scope. What it writes goes to `log`."""

    def __init__(self, command, log, **more):
        self.log = pathlib.Path(log)
        with self.log.open("ab") as output:
            self._process = subprocess.Popen(command, stdout=output, stderr=output, **more)
        self.pid = self._process.pid

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        self._process.kill()
        self._process.wait()
        if kind:
            print(f"--- {self.log.name}:\n{self.log.read_text(errors='replace')[-2000:]}", file=sys.stderr)

    def tell(self, signal):
        self._process.send_signal(signal)

    def status(self):
        """Waits for its end."""
        return self._process.wait(LIMIT_S)


class Instance:
    """A ktserve on ports that stay the same when it is started again."""

    def __init__(self, ktserve, folder, name, options):
        self.name = name
        self.port, self.admin_port = free_ports(2)
        self._log = folder / f"{name}.log"
        ports = ["--port", str(self.port), "--admin-port", str(self.admin_port)]
        self._command = [ktserve, str(folder / "root"), "--quiet", *ports, *options]
        self.process = None
        self.start()

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        self.process.__exit__(*failure)

    def start(self):
        if self.process:
            self.process.__exit__(None)
        self.process = Process(self._command, self._log)
        await_true(f"{self.name} is ready", lambda: get(self.admin_port, "/readyz") == "ready\n")


@contextlib.contextmanager
def fleet(ktserve, folder, *options):
    """Three instances; their root has `file` in it."""
    (folder / "root").mkdir()
    (folder / "root/file").write_text("abc")
    with contextlib.ExitStack() as stack:
        yield [stack.enter_context(Instance(ktserve, folder, f"k{n}", options)) for n in (1, 2, 3)]
