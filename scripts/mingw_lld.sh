#!/bin/sh
# Links with LLVM's linker where GCC for Windows would run the GNU one: g++ -wrapper scripts/mingw_lld.sh ...
# This GCC takes no other linker by -fuse-ld. What it runs besides the linker runs as it is.
case $1 in
*/collect2) shift && exec ld.lld "$@" ;;
*) exec "$@" ;;
esac
