/* The public header is plain C: this host is compiled as C99 with every
   warning an error, and calls the library through it. */
#include <stdio.h>
#include <string.h>

#include "nubex_engine.h"

int main(void) {
    char* version = GetNubexEngineVersion();
    const int ok = version != NULL && strcmp(version, "Nubex 8.0.9.6 - SDK 64 bit for Windows") == 0;
    ReleaseNubexMemory(version);
    ReleaseNubexMemory(NULL);
    puts(ok ? "header usable from C" : "unexpected version");
    return ok ? 0 : 1;
}
