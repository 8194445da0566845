/* A library for the tests of loading: it offers one function, and no table. */
__attribute__((visibility("default"))) int Two(void);
int Two(void) { return 2; }
