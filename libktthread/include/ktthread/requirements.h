/// What the libraries need of a client's compiler, beside C++11: refused here with a message,
/// instead of by a process that behaves strangely.
#pragma once

// Without it Boost's shared pointers are other classes of the same names: functions in their tables
// take a boost::core::typeinfo in place of a std::type_info. Client and library share such tables.
// The client would also bring a second KTError, as a handler sees it, and tasks without a type.
#ifndef __cpp_rtti
#error "libktthread needs run-time type information: compile without -fno-rtti"
#endif

// Without them the client's frames have nothing that destroys their objects when a KTError or a
// forced shutdown passes through: locks stay locked.
#ifndef __cpp_exceptions
#error "libktthread needs exceptions: compile without -fno-exceptions"
#endif
