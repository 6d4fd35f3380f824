# A stand-in for the build system's rules.mk: as much as the feed's Makefile needs to be read and obeyed on this machine.
# OUT is where packages go.
INCLUDE_DIR:=$(TOPDIR)
BUILD_DIR:=$(OUT)/build_dir
