#pragma once

#include <netdb.h>
#include <pthread.h>

/// The name service of a world. The runtime looks names up on threads of their own; here such a
/// thread is something that happens after a while, on the one thread that there is.
namespace Resolver {

/// Addresses are looked up by the system. "deviceSEED-NUMBER" is known: its address, behind one
/// that nobody answers at or that nothing is at, or for a time no address at all.
int lookUp(const char* name, const char* service, const addrinfo* wanted, addrinfo** found);
int startThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                void* argument);
/// The world ends: so do all look-ups, as none of the next world may find one under way.
void endAll();

} // namespace Resolver
