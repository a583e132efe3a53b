// One binary serves every machine; where the compiler can, it adds a version for wider vectors that
// is chosen when the module is loaded. (A sanitizer is not ready that early.)
#pragma once

#if defined(__x86_64__) && defined(__gnu_linux__) && !defined(__clang__) && \
    !defined(__SANITIZE_ADDRESS__)
#define TYPED_SHAPES_WIDE_VECTORS __attribute__((target_clones("avx2", "default")))
#else
#define TYPED_SHAPES_WIDE_VECTORS
#endif
