#pragma once

// The library beneath has constants of the same names, in C++: in the object files those of Objective-C bear another
// name.
#ifdef __APPLE__
#define TKSI_SYMBOL(name) __asm__("_TKSInterfaceKit_" #name)
#else
#define TKSI_SYMBOL(name) __asm__("TKSInterfaceKit_" #name)
#endif

// Names for Swift, where the system's headers know of it.
#ifndef NS_SWIFT_NAME
#define NS_SWIFT_NAME(name)
#endif
