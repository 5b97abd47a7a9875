# Sourced by the scripts that build the product: exports the distribution's
# build flags (dpkg-buildflags with every hardening feature: fortify, stack
# protector, relro, bind-now, PIE) and sets hardening_flags, the same as
# CMake arguments, for build trees that were configured before.
# CMake does not read CPPFLAGS: the preprocessor flags join the compiler's.
export DEB_BUILD_MAINT_OPTIONS=hardening=+all
eval "$(dpkg-buildflags --export=sh)"
export CFLAGS="$CFLAGS $CPPFLAGS" CXXFLAGS="$CXXFLAGS $CPPFLAGS"
hardening_flags=(-DCMAKE_C_FLAGS="$CFLAGS" -DCMAKE_CXX_FLAGS="$CXXFLAGS" -DCMAKE_EXE_LINKER_FLAGS="$LDFLAGS"
                 -DCMAKE_SHARED_LINKER_FLAGS="$LDFLAGS" -DCMAKE_MODULE_LINKER_FLAGS="$LDFLAGS")
