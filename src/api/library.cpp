// The shared library adds nothing of its own: the C interface and everything
// behind it come whole from the core library, and the linker's export map
// keeps the eight interface functions visible and hides the rest.
