#ifndef DISKACCESS_REFUSED_CALLS_H
#define DISKACCESS_REFUSED_CALLS_H

namespace diskaccess {

/// Has the kernel refuse, with EPERM and for the rest of the process's life, system calls that no reader of a disk needs:
/// starting programs, looking into other processes, mounting, loading code into the kernel, and device commands that write
/// past a descriptor's being read-only or type at a terminal.
/// @param network whether sockets are left
/// @return whether the kernel does
bool RefuseCalls(bool network);

} // namespace diskaccess

#endif // DISKACCESS_REFUSED_CALLS_H
