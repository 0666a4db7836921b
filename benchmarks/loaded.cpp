// A program that does nothing, with the library where it is linked.

#ifdef TKS_WITH_LIBRARY
#include <tksinterface/TKSILog.h>

int main() { return TKSILog::isListening() ? 1 : 0; }
#else
int main() { return 0; }
#endif
