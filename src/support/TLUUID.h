// Fresh identifiers for bins and other objects the hosts keep track of.
#pragma once

#include <string>

// Makes random identifiers. Stateless for its callers; safe from any thread.
class TLUUID
{
public:
    // A new random identifier (an RFC 4122 version 4 UUID) in canonical
    // form: 32 upper-case hexadecimal digits in groups 8-4-4-4-12, such as
    // "1B4E28BA-2FA1-41D2-883F-0016D3CCA427". Each thread draws from its
    // own generator, seeded from the operating system's entropy source on
    // the thread's first call, so two calls never share a sequence.
    static std::string generateUUID();
};
