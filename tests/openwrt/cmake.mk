# A stand-in for the build system's cmake.mk. BUILT names a build directory to install from in place of a new one.
CMAKE_BINARY_DIR:=$(or $(BUILT),$(PKG_BUILD_DIR))

prepare:
	$(Build/Prepare)

configure: prepare
	cmake -S $(PKG_BUILD_DIR) -B $(CMAKE_BINARY_DIR) -G Ninja $(CMAKE_OPTIONS) $(MORE_OPTIONS)
