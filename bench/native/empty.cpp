// A library without anything in it, for what loading costs besides our own.
extern "C" __attribute__((visibility("default"))) int bench_empty() {
  return 0;
}
