// Compiled as its own project says, whoever else is in the build.
#if __cplusplus != 201703L
#error "another standard than the project's"
#endif
int neighbour(int number) {
  // Warned of by what the library compiles itself with.
  const char narrow = number;
  return narrow;
}
