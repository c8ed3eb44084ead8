"""For gdb, at rest in inspected.cpp: puts nonsense in each word of the library's objects in turn, and
looks at them. Whoever runs this looks for what must not be said."""
import gdb

NONSENSE = (0, 0x5A5A5A5A5A5A5A5A, 0xFFFFFFFFFFFFFFFF)
COMMANDS = ("info kt-pools", "print *inspected::pool.px", "print inspected::pool", "print *inspected::sleeper",
            "print *inspected::base", "print inspected::running")


def look():
    for command in COMMANDS:
        try:
            gdb.write(gdb.execute(command, to_string=True))
        except gdb.error as error:
            gdb.write(f"{error}\n")


def addresses(pointer):
    """Of the words of an object, without those that only keep others apart."""
    kind = pointer.dereference().type.strip_typedefs()
    gaps = {word for field in kind.fields() if str(field.type) == "KT::KTCacheLineGap"
            for word in range(field.bitpos // 64 + 1, (field.bitpos // 8 + field.type.sizeof) // 8)}
    return [int(pointer) + 8 * word for word in range(kind.sizeof // 8) if word not in gaps]


def damage(address):
    memory = gdb.selected_inferior()
    before = bytes(memory.read_memory(address, 8))
    for value in (*NONSENSE, address):
        memory.write_memory(address, value.to_bytes(8, "little"))
        look()
    memory.write_memory(address, before)
    return len(NONSENSE) + 1


def main():
    objects = [gdb.parse_and_eval(f"inspected::{name}") for name in ("pool.px", "sleeper", "base")]
    objects.append(gdb.parse_and_eval("inspected::base")["managingThread"]["px"])
    objects.append(gdb.parse_and_eval("inspected::pool.px")["tasks"]["members_"]["m_start"]["m_cur"])
    objects.append(gdb.parse_and_eval("inspected::pool.px")["threads"]["_M_impl"]["_M_start"])
    times = sum(damage(address) for pointer in objects for address in addresses(pointer))
    gdb.write(f"damaged {times} times\n")


main()
