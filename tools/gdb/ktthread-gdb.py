"""For gdb: the pools of a process, its workers and tasks. See docs/debugging.md.

    info kt-pools              every pool that a worker thread leads to
    info kt-pools EXPRESSION   one pool: an object, a pointer or a shared pointer
    print TASK                 also workers, pools, and shared and weak pointers to the three

It reads memory and calls nothing in the process, so it works on a core file too. It needs the types of
libktthread, that is its debug symbols. Whatever can't be read is said in place of its value.
"""
import itertools
import os
import re
import time

import gdb
import gdb.printing

TASK_STATES = {0: "waiting", 1: "running", 2: "finished"}
NAMES_SHOWN = 5  # of the tasks in a queue
TASKS_SEARCHED = 1000  # of a queue, for what leads to other pools
LONGEST_NAME = 200
SIZE_OF_NAME = 32  # of a pool: KTThreadPoolStatus has as much
MOST_ELEMENTS = 1 << 30  # more of anything is no number of tasks or workers
MOST_SLOTS = 1 << 20
FRAMES_SEARCHED = 32
# The C library keeps a thread's record where its pthread_t points, and in it the argument of its start
# routine. A record is somewhat more than 2 KiB large.
RECORD_BYTES = 4096


class Unusable(Exception):
    """What is in memory can't be what it should be."""


# ---------------------------------------------------------------------------------------------
# What any value may be asked
# ---------------------------------------------------------------------------------------------


def said(error):
    text = str(error) or type(error).__name__
    if not isinstance(error, (gdb.error, Unusable)):
        text = f"unforeseen: {type(error).__name__}: {text}"
    return f"<{text[0].lower()}{text[1:].rstrip('.')}>"


def attempt(read, *arguments):
    """What `read` returns, or why it could not. No exception may leave a printer."""
    try:
        return read(*arguments)
    except Exception as error:
        return said(error)


def readable(items):
    """A list of the items up to the first that can't be read."""
    found = []
    try:
        found.extend(items)
    except (gdb.error, Unusable):
        pass
    return found


def bare(kind):
    """A type without references, typedefs, const."""
    kind = kind.strip_typedefs()
    if kind.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        kind = kind.target().strip_typedefs()
    return kind.unqualified()


def bases(kind):
    if kind.code != gdb.TYPE_CODE_STRUCT:
        return []
    return [field.type for field in itertools.takewhile(lambda field: field.is_base_class, kind.fields())]


def derives(kind, name):
    kind = bare(kind)
    return kind.name == name or any(derives(base, name) for base in bases(kind))


def our_kind(kind):
    """The class of libktthread that a type is or derives from; None if there is none."""
    return next((name for name in PRINTERS if derives(kind, name)), None)


def smart_pointer(kind):
    """(shared or weak, what it points to) of a smart pointer of Boost, else None."""
    kind = bare(kind)
    match = re.match(r"boost::(shared|weak)_ptr<", kind.name or "")
    return (match.group(1), kind.template_argument(0)) if match else None


def member(pointer, name):
    """A member of what a pointer points to. gdb looks up the dynamic type of whatever it dereferences,
    and warns where that has no debug symbols; this does not dereference."""
    kind = bare(bare(pointer.type).target())
    field = next((field for field in kind.fields() if field.name == name), None)
    if field is None:
        raise Unusable(f"no debug symbols of {kind.name}, or another version's")
    address = (int(pointer) + field.bitpos // 8) % 2**64  # a damaged pointer may be near the end
    return gdb.Value(address).cast(field.type.pointer()).dereference()


def dynamic_name(pointer):
    """The class that an object's table of virtual functions belongs to, by the symbol of that; None if
    it is damaged. Needs no debug symbols."""
    try:
        table = int.from_bytes(gdb.selected_inferior().read_memory(int(pointer), 8), "little")
        symbol = gdb.execute(f"info symbol 0x{table:x}", to_string=True)
    except gdb.error:
        return None
    match = re.match(r"vtable for (.*?)(?: \+ \d+)?(?: in section .*)?$", symbol)
    return match.group(1) if match else None


def number(atomic):
    """The value of a std::atomic, or of a plain number."""
    kind = bare(atomic.type)
    while kind.code == gdb.TYPE_CODE_STRUCT:
        atomic = atomic[next(field for field in kind.fields() if hasattr(field, "bitpos"))]  # no static one
        kind = bare(atomic.type)
    return int(atomic)


def atomic_value(atomic):
    """What is in a std::atomic of a pointer."""
    kind = bare(atomic.type)
    while kind.code == gdb.TYPE_CODE_STRUCT:
        atomic = atomic[next(field for field in kind.fields() if hasattr(field, "bitpos"))]
        kind = bare(atomic.type)
    return atomic


def pointee(unique):
    """What a std::unique_ptr points to: its only data is the pointer."""
    pointed = bare(unique.type).template_argument(0)
    return unique.address.cast(pointed.pointer().pointer()).dereference().dereference()


def signed(value):
    """Of a difference of two unsigned numbers of 64 bits."""
    value &= 2**64 - 1
    return value - 2**64 if value >= 2**63 else value


def work_name(work):
    return '"' + shown(member(work, "shortName")["text"].string(errors="replace")) + '"'


def shown(text):
    """Such that gdb can print it, whatever its character set."""
    text = "".join(c if c.isprintable() else c.encode("unicode_escape").decode() for c in text)
    try:
        charset = gdb.host_charset()
        return text.encode(charset, "backslashreplace").decode(charset)
    except LookupError:
        return text.encode("ascii", "backslashreplace").decode()


def string_text(string):
    length = int(string["_M_string_length"])
    if length > MOST_ELEMENTS:
        raise Unusable(f"corrupted: a string of {length} bytes")
    data = string["_M_dataplus"]["_M_p"]
    read = gdb.selected_inferior().read_memory(int(data), min(length, LONGEST_NAME)) if length else b""
    return f'"{shown(bytes(read).decode(errors="backslashreplace"))}"{"..." if length > LONGEST_NAME else ""}'


def users(pointer, field="use_count_"):
    """How many share what a smart pointer of Boost points to; 0 if nobody does any more."""
    count = pointer["pn"]["pi_"]
    return number(member(count, field)) if int(count) else 0


def owned(item, name):
    """`item`, unless it can't be what its type says: who derives from enable_shared_from_this
    knows its own address once it is shared."""
    own = int(item["weak_this_"]["px"])
    if own not in (0, int(item.address)):
        raise Unusable(f"not a {name}, or corrupted, or freed: 0x{int(item.address):x}")
    return item


# ---------------------------------------------------------------------------------------------
# Containers
# ---------------------------------------------------------------------------------------------


def size_behind(pointer):
    return pointer.dereference().type.sizeof


def vector_items(vector):
    start, finish = (vector["_M_impl"][name] for name in ("_M_start", "_M_finish"))
    count, rest = divmod(int(finish) - int(start), size_behind(start))
    if rest or not 0 <= count <= MOST_SLOTS:
        raise Unusable("corrupted: the table of workers")
    return [start[i] for i in range(count)]


class Queue:
    """A boost::container::deque: an array of pointers to blocks, the first and the last of which
    need not be full."""

    def __init__(self, deque):
        start, finish = deque["members_"]["m_start"], deque["members_"]["m_finish"]
        self.nodes = start["m_node"]
        nodes = (int(finish["m_node"]) - int(self.nodes)) // size_behind(self.nodes)
        self.first = self.distance(start["m_first"], start["m_cur"])
        self.block = self.distance(start["m_first"], start["m_last"])
        last = self.distance(finish["m_first"], finish["m_cur"])
        self.size = nodes * self.block + last - self.first
        if not (0 <= self.size <= MOST_ELEMENTS and 0 <= self.first <= self.block and 0 <= last <= self.block):
            raise Unusable("corrupted: the queue")

    @staticmethod
    def distance(start, end):
        return (int(end) - int(start)) // size_behind(start)

    def items(self, most):
        for i in range(self.first, self.first + min(self.size, most)):
            yield self.nodes[i // self.block][i % self.block]


# ---------------------------------------------------------------------------------------------
# Times
# ---------------------------------------------------------------------------------------------


def microseconds(stamp):
    """Since 1970; 0 if never stamped. The library's seconds wrap in 2038 only where they are signed."""
    return int(stamp["tv_sec"]) % 2**32 * 1000000 + int(stamp["tv_usec"])


def time_text(stamp):
    if stamp == 0:
        return "not stamped"
    seconds, rest = divmod(stamp, 1000000)
    return time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(seconds)) + f".{rest:06d}"


def duration_text(start, end):
    return f"{(end - start) / 1000000:.6f} s"


def moment():
    """What is "now" for the process, in microseconds: for a core, when its file was last written.
    None where the clock may be another machine's."""
    connection = gdb.selected_inferior().connection
    kind = connection.type if connection else ""
    if kind == "native":
        return time.time_ns() // 1000
    core = re.search(r"`(.*)', file type", gdb.execute("info files", to_string=True).partition("core dump file")[2])
    return os.stat(core.group(1)).st_mtime_ns // 1000 if kind == "core" and core else None


def so_far(start):
    now = attempt(moment)
    return duration_text(start, now) + " so far" if isinstance(now, int) and now >= start else "not over"


# ---------------------------------------------------------------------------------------------
# Threads
# ---------------------------------------------------------------------------------------------


def handle_of(thread):
    """The thread's pthread_t, or None where gdb can't tell."""
    try:
        return int.from_bytes(thread.handle(), "little")
    except RuntimeError:
        return None  # without libthread_db


def handle_by_register(thread):
    """As handle_of, but needs to select the thread, which no printer may."""
    handle = handle_of(thread)
    if handle is None and not thread.is_running():
        thread.switch()
        try:
            handle = int(gdb.newest_frame().read_register("fs_base"))
        except ValueError:
            pass  # not an x86-64
    return handle


def thread_of(worker):
    """(the worker's thread or None, whether gdb can tell)"""
    threads = {handle_of(thread): thread for thread in gdb.selected_inferior().threads()}
    return threads.get(int(worker["threadHandle"])), None not in threads


def thread_text(worker):
    thread, known = thread_of(worker)
    return f"{thread.num} (LWP {thread.ptid[1]})" if thread else "none" if known else "unknown to gdb"


def state_by_name(worker):
    """Of a worker without a task: what a printer may look at, which mustn't select a thread."""
    thread, known = thread_of(worker)
    if thread is None and known:
        return "ended"
    if thread is None or not thread.name:  # there are no names in core files
        return "without a task"
    return "sleeping" if thread.name.startswith("KTThread [sleep") else "checking"


class Selection:
    """Selects the thread and frame again that were selected, in the end."""

    def __enter__(self):
        self.thread = gdb.selected_thread()
        self.frame = gdb.selected_frame() if self.thread and not self.thread.is_running() else None

    def __exit__(self, *_):
        if self.thread and self.thread.is_valid():
            self.thread.switch()
        if self.frame and self.frame.is_valid():
            self.frame.select()


def function_names(thread):
    """Of the thread's newest frames; selects the thread."""
    thread.switch()
    frame = gdb.newest_frame()
    for _ in range(FRAMES_SEARCHED):
        if frame is None:
            return
        yield (frame.name() or "").partition("(")[0]
        frame = frame.older()


def state_by_frames(thread):
    """Of a worker without a task."""
    if thread.is_running():
        return "without a task"
    # Without debug symbols sleepOnce may not be told from its caller, but nothing else that the
    # library does without a task waits there.
    sleeps = any(name.endswith("sleepOnce") or name == "KT::KTCondition::wait" for name in function_names(thread))
    return "sleeping" if sleeps else "checking"


class Workers:
    """The workers of the process, found by its threads."""

    def __init__(self):
        try:
            self.type = gdb.lookup_type("KT::KTThread").pointer()
        except gdb.error as error:
            raise Unusable("No debug symbols of libktthread: it must have been built with -g.") from error
        self.offsets = []  # where in a record a worker was found
        self.threads = {}  # by the worker's address
        self.workers = {}
        for thread in sorted(gdb.selected_inferior().threads(), key=lambda thread: thread.num):
            self.look_at(thread)

    def look_at(self, thread):
        handle = handle_by_register(thread)
        if handle is None:
            return
        words = self.record(handle)
        for offset in self.offsets + list(range(len(words))):
            if offset < len(words) and self.is_worker(words[offset], handle):
                self.offsets = [offset]
                self.threads[words[offset]] = thread
                self.workers[words[offset]] = gdb.Value(words[offset]).cast(self.type).dereference()
                return

    @staticmethod
    def record(handle):
        content = b""
        try:
            while len(content) < RECORD_BYTES:
                content += bytes(gdb.selected_inferior().read_memory(handle + len(content), 256))
        except gdb.error:
            pass  # the end of the stack that the record is on
        return [int.from_bytes(content[i : i + 8], "little") for i in range(0, len(content), 8)]

    def is_worker(self, word, handle):
        """Both ways round: the thread's record points to a worker, which names that thread and
        knows its own address."""
        if word == 0 or word % 8 != 0:
            return False
        try:
            worker = gdb.Value(word).cast(self.type).dereference()
            return int(worker["threadHandle"]) == handle and int(worker["weak_this_"]["px"]) == word
        except gdb.error:
            return False


# ---------------------------------------------------------------------------------------------
# Tasks, workers, pools
# ---------------------------------------------------------------------------------------------


class Task:
    name = "KT::KTTask"

    def __init__(self, pointer):
        pointer = pointer.cast(bare(bare(pointer.type).target()).pointer())  # gdb minds typedefs here
        self.base = pointer.cast(gdb.lookup_type(self.name).pointer())
        self.class_name = dynamic_name(self.base) or bare(pointer.type.target()).name
        self.whole = None  # of the type that it really has
        try:
            if bare(pointer.type.target()).name != self.class_name:
                gdb.lookup_type(self.class_name)
                pointer = pointer.cast(pointer.dynamic_type)
            self.whole = pointer.dereference()
        except gdb.error:
            pass  # its class has no debug symbols

    def stamp(self, name):
        return microseconds(member(self.base, name))

    created = property(lambda self: self.stamp("creationTime"))
    started = property(lambda self: self.stamp("executionTime"))
    ended = property(lambda self: self.stamp("endTime"))

    def state(self):
        value = number(member(self.base, "state"))
        return TASK_STATES.get(value, f"state {value}?")

    def task_name(self):
        return string_text(member(self.base, "taskName"))

    def title(self):
        return f"{attempt(self.task_name)} ({self.class_name})"

    def text(self):
        return f"{self.class_name} {attempt(self.task_name)}, {attempt(self.state)}"

    def running_text(self):
        if self.class_name == "KT::detail::Carrier" and self.whole is not None:
            return Scheduler.carried(self.whole)
        if not self.started:
            return f"{self.title()}, start not stamped"
        return f"{self.title()} since {time_text(self.started)}, {so_far(self.started)}"

    def waited(self):
        if self.started:
            return duration_text(self.created, self.started)
        return so_far(self.created) if self.state() == "waiting" else "not stamped"

    def ran(self):
        if not self.started:
            return "not stamped"
        if self.ended >= self.started:
            return duration_text(self.started, self.ended)
        return so_far(self.started) if self.state() == "running" else "not stamped"

    def worker(self):
        link = member(self.base, "managingThread")
        return Worker(link["px"]).text() if users(link) else "none"

    def children(self):
        for name in ("created", "started", "ended"):
            yield name, attempt(lambda field: time_text(getattr(self, field)), name)
        yield "waited", attempt(self.waited)
        yield "ran", attempt(self.ran)
        yield "worker", attempt(self.worker)
        if self.whole is not None:
            yield from self.own_fields(self.whole)

    def own_fields(self, value):
        """Those of the client's classes, the eldest first."""
        kind = bare(value.type)
        if kind.name == self.name:
            return
        for field in kind.fields():
            if field.is_base_class and derives(field.type, self.name):
                yield from self.own_fields(value[field])
            elif field.is_base_class:
                yield f"<{field.name}>", value[field]
            elif field.name and hasattr(field, "bitpos") and not field.artificial:
                yield field.name, value[field]


class Scheduler:
    """What libktasync keeps beside a pool: its tasks are carried by a few tasks of the core, which are none
    to those who look at the pool."""

    name = "KT::detail::Scheduler"

    def __init__(self, pointer):
        self.scheduler = pointer.cast(gdb.lookup_type(self.name).pointer()).dereference()

    @classmethod
    def of(cls, pool):
        """None where libktasync doesn't use the pool, or has no debug symbols."""
        try:
            extension = atomic_value(pool["extensionInUse"])
            return cls(extension) if int(extension) and dynamic_name(extension) == cls.name else None
        except gdb.error:
            return None

    def queues(self):
        for unique in vector_items(self.scheduler["outer"]):
            yield pointee(unique)
        places = list(vector_items(self.scheduler["runners"]))
        for place in places[:number(self.scheduler["runnerCount"])]:
            yield atomic_value(place)["own"]

    def queued(self):
        return sum(max(signed(number(queue["added"]) - number(queue["taken"])), 0) for queue in self.queues())

    def names(self, most):
        for queue in self.queues():
            for end in ("older", "newer"):
                work = queue[end]["first"]
                while int(work) and most > 0:
                    yield work_name(work)
                    most -= 1
                    work = member(work, "nextInList")

    def carriers_queued(self):
        return number(self.scheduler["unstarted"])

    def carriers_idle(self):
        return number(self.scheduler["idle"]["count"])

    @staticmethod
    def carried(carrier):
        """What a carrier runs."""
        word = number(carrier["current"]["word"]) & ~3
        if not word:
            return "between two tasks"
        return work_name(gdb.Value(word).cast(gdb.lookup_type("KT::detail::Work").pointer())) + " (libktasync)"


class Worker:
    name = "KT::KTThread"

    def __init__(self, pointer):
        self.worker = pointer.dereference()

    def task(self):
        """None if it has none."""
        task = self.worker["currentTask"]["px"]
        return Task(task) if int(task) else None

    def state(self, without_task=state_by_name):
        """`without_task`: tells the state of a worker that has a thread, but no task."""
        task = self.task()
        if task is not None:
            return {"running": "running", "waiting": "starting", "finished": "ending"}.get(task.state(), "has a task")
        if not number(self.worker["launched"]):
            return "not launched"
        return without_task(self.worker) + (", told to stop" if number(self.worker["killed"]) else "")

    def text(self):
        return f"KT::KTThread {int(self.worker['index'])}, {attempt(self.checked_state)}"

    def checked_state(self):
        owned(self.worker, self.name)
        return self.state()

    def children(self):
        yield "thread", attempt(thread_text, self.worker)
        yield "handle", attempt(lambda: f"0x{int(self.worker['threadHandle']):x}")
        yield "task", attempt(lambda: self.task().text() if self.task() else "none")
        yield "pool", attempt(lambda: f"0x{int(self.worker['pool']['px']):x}" if users(self.worker["pool"]) else "none")


class Pool:
    name = "KT::KTThreadPool"

    def __init__(self, pointer):
        self.pool = pointer.cast(gdb.lookup_type(self.name).pointer()).dereference()

    def state(self):
        owned(self.pool, self.name)
        serves = number(self.pool["nbThreads"]) > 0
        if int(self.pool["monitor"]["px"]):
            return "running" if serves else "stopped"
        return "made" if serves else "closed"

    def text(self):
        return f"KT::KTThreadPool{self.label()}, {attempt(self.state)}"

    def label(self):
        """Its name behind a space; nothing if it has none, or is no pool."""
        try:
            owned(self.pool, self.name)
        except (gdb.error, Unusable):
            return ""
        name = attempt(self.given_name)
        return name and " " + name

    def given_name(self):
        # The settings begin with it. Their type is known only from the library's own debug symbols.
        settings = self.pool["settings"].address.cast(gdb.lookup_type("unsigned long").pointer()).dereference()
        text = bytes(gdb.selected_inferior().read_memory(int(settings), SIZE_OF_NAME)).partition(b"\0")[0]
        return f'"{shown(text.decode(errors="backslashreplace"))}"' if text else ""

    def counts(self):
        scheduler = self.scheduler()
        idle = scheduler.carriers_idle() if scheduler else 0
        yield "threads", number(self.pool["nbThreads"])
        yield "busy", max(int(self.pool["nbBusyThreads"]) - idle, 0)
        yield "max", int(self.pool["maxThreads"])
        yield "to retire", number(self.pool["nbThreadsToRemove"])

    def queue(self):
        return Queue(self.pool["tasks"])

    def scheduler(self):
        return Scheduler.of(self.pool)

    def queued(self):
        scheduler = self.scheduler()
        carried = scheduler.queued() - scheduler.carriers_queued() if scheduler else 0
        return max(self.queue().size + carried, 0)

    def first_tasks(self):
        queue = self.queue()
        scheduler = self.scheduler()
        names = [attempt(self.queued_text, task) for task in queue.items(NAMES_SHOWN)
                 if not int(task["px"]) or dynamic_name(task["px"]) != "KT::detail::Carrier"]
        if scheduler:
            names += scheduler.names(NAMES_SHOWN - len(names))
        size = self.queued()
        more = f" and {size - NAMES_SHOWN} more" if size > NAMES_SHOWN else ""
        return (", ".join(names) or "empty") + more

    @staticmethod
    def queued_text(pointer):
        return string_text(member(pointer["px"], "taskName")) if int(pointer["px"]) else "null"

    def monitor(self):
        monitor = int(self.pool["monitor"]["px"])
        return f"0x{monitor:x}" if monitor else "none"

    def children(self):
        yield from readable(self.counts())
        yield "queued", attempt(self.queued)
        yield "queue", attempt(self.first_tasks)
        yield "monitor", attempt(self.monitor)


# ---------------------------------------------------------------------------------------------
# print
# ---------------------------------------------------------------------------------------------

PRINTERS = {kind.name: kind for kind in (Task, Worker, Pool)}


class Printer:
    def __init__(self, value, kind):
        self.pointer, self.kind = value.address, kind  # None if it was optimised out

    def to_string(self):
        if self.pointer is None:
            return "<optimized out>"
        return attempt(lambda: self.kind(self.pointer).text())

    def children(self):
        if self.pointer is None:
            return []
        shown_values = readable(self.kind(self.pointer).children())
        return [(name, value if isinstance(value, gdb.Value) else str(value)) for name, value in shown_values]


class PointerPrinter:
    """A shared or weak pointer, on one line."""

    def __init__(self, value, flavour, pointee):
        self.value, self.flavour, self.pointee = value, flavour, pointee

    def to_string(self):
        if self.value.is_optimized_out:
            return "<optimized out>"
        return f"boost::{self.flavour}_ptr {attempt(self.text)}"

    def text(self):
        pointer = self.value["px"]
        if int(pointer) == 0:
            return "to nothing"
        count = users(self.value)
        if self.flavour == "weak" and count == 0:
            return f"to 0x{int(pointer):x}, which is gone"
        kind = PRINTERS[our_kind(self.pointee)]
        text = attempt(lambda: kind(pointer).text())
        return f"to {text}, at 0x{int(pointer):x} ({'1 owner' if count == 1 else f'{count} owners'})"


class Lookup(gdb.printing.PrettyPrinter):
    """Finds the printer of a value; a client's class that derives from a task has its printer."""

    def __init__(self):
        super().__init__("libktthread")

    def __call__(self, value):
        pointer = smart_pointer(value.type)
        pointee = pointer[1] if pointer else bare(value.type)
        kind = our_kind(pointee)
        if kind is None:
            return None
        value = value.referenced_value() if value.type.strip_typedefs().code == gdb.TYPE_CODE_REF else value
        return PointerPrinter(value, *pointer) if pointer else Printer(value, PRINTERS[kind])


# ---------------------------------------------------------------------------------------------
# info kt-pools
# ---------------------------------------------------------------------------------------------


def pool_of(expression):
    """The pool that an expression of gdb's leads to."""
    value = gdb.parse_and_eval(expression)
    pointer = smart_pointer(value.type)
    if pointer:
        value = value["px"]
    pointer = value if bare(value.type).code == gdb.TYPE_CODE_PTR else value.address
    if pointer is None or not derives(bare(pointer.type).target(), Pool.name):
        raise Unusable(f"{expression} is no KT::KTThreadPool, nor a pointer to one.")
    if int(pointer) == 0:
        raise Unusable(f"{expression} points to nothing.")
    return pointer


def pools_behind(worker):
    """The pools that a worker leads to: its own, those of its task."""
    if users(worker["pool"]):
        yield worker["pool"]["px"]
    if int(worker["currentTask"]["px"]):
        yield from pools_behind_task(worker["currentTask"]["px"])


def pools_behind_task(task):
    link = member(task, "managingThread")
    if users(link) and users(link["px"]["pool"]):
        yield link["px"]["pool"]["px"]


def pools_behind_queue(pool):
    for task in Queue(pool.dereference()["tasks"]).items(TASKS_SEARCHED):
        if int(task["px"]):
            yield from pools_behind_task(task["px"])


def all_pools(workers):
    found = {}
    searches = [pools_behind(worker) for worker in workers.workers.values()]
    while searches:
        for pointer in readable(searches.pop(0)):
            if int(pointer) and int(pointer) not in found:
                found[int(pointer)] = pointer
                searches.append(pools_behind_queue(pointer))
    return list(found.values())


def worker_row(pointer, workers, remark):
    worker = Worker(pointer)
    owned(worker.worker, Worker.name)
    thread = workers.threads.get(int(pointer))
    # Where the thread has gone and another one has its handle, it isn't among the workers' threads.
    state = worker.state(lambda _: state_by_frames(thread) if thread else "ended")
    task = worker.task()
    return (str(int(worker.worker["index"])), str(thread.num) if thread else "-",
            str(thread.ptid[1]) if thread else "-", state + remark, attempt(task.running_text) if task else "")


def rows_or_text(pointers, workers, remark):
    for pointer in pointers:
        row = attempt(worker_row, pointer, workers, remark)
        yield row if isinstance(row, tuple) else ("?", "-", "-", row, "")


def worker_rows(pool, workers):
    """Of the pool's table; of those that it has set aside; of those that have left both."""
    listed = set()
    for field, remark in (("threads", ""), ("retiredThreads", " (set aside)")):
        table = [slot["px"] for slot in vector_items(pool[field]) if int(slot["px"])]
        listed.update(int(pointer) for pointer in table)
        yield from rows_or_text(table, workers, remark)
    leaving = [worker.address for address, worker in workers.workers.items()
               if address not in listed and int(worker["pool"]["px"]) == int(pool.address)]
    yield from rows_or_text(leaving, workers, " (leaving)")


def show_table(rows):
    rows = [("worker", "thread", "LWP", "state", "task"), *rows]
    if len(rows) == 1:
        return
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    for row in rows:
        gdb.write("  " + "  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() + "\n")


def show_pool(pointer, workers):
    pool = Pool(pointer)
    state = pool.state()
    counts = ", ".join(f"{name} {count}" for name, count in pool.counts())
    gdb.write(f"Pool 0x{int(pointer):x}{pool.label()}, {state}: {counts}, queued {attempt(pool.queued)}\n")
    gdb.write(f"  queue: {attempt(pool.first_tasks)}\n")
    rows = []
    try:
        rows.extend(worker_rows(pool.pool, workers))
    finally:  # what there is up to the first that can't be read
        show_table(rows)


class InfoPools(gdb.Command):
    """List the thread pools of libktthread.
Usage: info kt-pools [EXPRESSION]

Shows each pool that a worker thread of the process leads to: its counts, its first queued tasks and
its workers with their threads, states and tasks. A pool without a thread can't be found that way:
give an EXPRESSION for it, a KT::KTThreadPool or any pointer to one."""

    def __init__(self):
        super().__init__("info kt-pools", gdb.COMMAND_STATUS, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, _from_tty):
        try:
            if not gdb.selected_inferior().threads():
                raise Unusable("No process or core file.")
            pool = pool_of(argument) if argument else None
            with Selection():
                self.show([pool] if argument else None)
        except (gdb.error, Unusable) as error:
            raise gdb.GdbError(str(error)) from error
        except Exception as error:  # a traceback would help nobody who debugs a program
            raise gdb.GdbError(f"info kt-pools failed: {type(error).__name__}: {error}") from error

    @staticmethod
    def show(pools):
        workers = Workers()
        found = all_pools(workers) if pools is None else pools
        for pool in found:
            try:
                show_pool(pool, workers)
            except (gdb.error, Unusable) as error:
                gdb.write(f"Pool 0x{int(pool):x}: {said(error)}\n")
        if not found:
            gdb.write(f"No pool found: none of {len(gdb.selected_inferior().threads())} threads is a worker.\n")


gdb.printing.register_pretty_printer(gdb.current_objfile(), Lookup(), replace=True)
InfoPools()
