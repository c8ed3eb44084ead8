/// What the libraries need of a client's compiler besides C++11. Without it compilation fails here,
/// with a message; otherwise the process would misbehave.
#pragma once

// Without it Boost's shared pointers are different classes of the same names: their virtual
// functions take a boost::core::typeinfo in place of a std::type_info, and client and library call
// each other's. Exception handlers would also take the client's KTError for another class than the
// library's, and the client's tasks would have no type information.
#ifndef __cpp_rtti
#error "libktthread needs run-time type information: compile without -fno-rtti"
#endif

// Without them the client's frames don't destroy their objects when a KTError or a forced shutdown
// unwinds them: locks stay locked.
#ifndef __cpp_exceptions
#error "libktthread needs exceptions: compile without -fno-exceptions"
#endif
