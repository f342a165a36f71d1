#!/usr/bin/env bash
# One test of what is installed and packed: install_test.sh CASE SOURCE BUILD WORK [TOOLCHAIN]
# BUILD is the build to install from, WORK a folder of this test's own, TOOLCHAIN that of a cross build for Windows, whose
# programs run under Wine.
set -euo pipefail
case=$1 source=$2 build=$3 work=$4 toolchain=${5:-}
tree=$(dirname "$work")/tree # what the first case installs
rm -rf "$work"
mkdir -p "$work"

run=()
suffix=
consumer_options=(-G Ninja -DCMAKE_BUILD_TYPE=Debug)
if [ -n "$toolchain" ]; then
  run=("$source/scripts/wine.sh")
  suffix=.exe
  consumer_options+=(-DCMAKE_TOOLCHAIN_FILE="$toolchain")
fi

# The folder of the libraries below that of an installation: lib, or lib/ARCHITECTURE.
libraries=lib
[ -n "$toolchain" ] || libraries=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:[A-Z]*=//p' "$build/CMakeCache.txt")

# Whether the build has the adapter for GigE Vision devices.
has_gige=no
if [ -e "$build/lib/libKyGigE.so" ] || [ -e "$build/bin/KyGigE.dll" ]; then
  has_gige=yes
fi

fail() {
  echo "install: $*" >&2
  exit 1
}

# build_and_run PREFIX: the consumer against what is installed there, its programs beside the DLLs.
build_and_run() {
  cmake -S "$source/Tests/Install/Consumer" -B "$work/consumer" "${consumer_options[@]}" -DCMAKE_PREFIX_PATH="$1" \
    -DCMAKE_FIND_ROOT_PATH="$1" -DKYSERIAL_CONSUMER_HAS_GIGE="$has_gige" >"$work/configure.log" 2>&1 ||
    { cat "$work/configure.log"; fail "configure"; }
  cmake --build "$work/consumer" >"$work/build.log" 2>&1 || { cat "$work/build.log"; fail "build"; }
  if [ -n "$toolchain" ]; then
    cp "$1"/bin/*.dll "$work/consumer"
  fi
  "${run[@]}" "$work/consumer/consumer$suffix" | tee "$work/consumer.out"
  grep -q '^open: NO_CONNECTION, bridge: 0, clser: 0' "$work/consumer.out" || fail "the program said something else"
  "${run[@]}" "$work/consumer/consumer_c$suffix" | grep 'ID KYLENS 1.0'
  if [ "$has_gige" = yes ]; then
    "${run[@]}" "$work/consumer/consumer_gige$suffix" | tr -d '\r' |
      grep '^address: good, connect: NO_CONNECTION, open: NO_CONNECTION, search: refused, mac: 00:00:00:00:00:01'
  fi
}

# talk PROGRAM...: the installed program has to hear from the lens of its simulated camera.
talk() {
  printf 'STATUS?\r\n' | "$@" term --device sim --port uart0 | grep 'STATUS READY ZOOM 0 FOCUS 1000 IRIS 100'
}

# with_camera BIN COMMAND...: the command with the installed camera program running, which is at $device.
with_camera() {
  local ready=$work/camera.out bin=$1 camera
  shift
  : >"$ready" # the camera's process empties it too, but maybe after the first look for the former camera's line
  "${run[@]}" "$bin/kyserial-camera$suffix" --port 0 --no-broadcast </dev/null >"$ready" 2>&1 &
  camera=$!
  trap 'kill "$camera" 2>/dev/null || true' EXIT
  for _ in $(seq 600); do
    ! grep -q 'ready at' "$ready" || break
    sleep 0.1
  done
  device=gev://$(sed -n 's/.*ready at \([0-9.:]*\).*/\1/p' "$ready")
  "$@"
  kill "$camera"
  wait "$camera" || [ -n "$toolchain" ] || fail "the camera ended with status $?" # Wine knows no such request
  trap - EXIT
}

# hears_lens PROGRAM...: the program, given a camera, has to print what its lens says.
hears_lens() {
  "$@" "$device" | tr -d '\r' | grep 'STATUS READY ZOOM 0 FOCUS 1000 IRIS 100' || fail "no answer over the network: $*"
}

# talk_over_network BIN: the installed program has to hear from the lens of the installed camera program.
talk_over_network() {
  term() { printf 'STATUS?\r\n' | "${run[@]}" "$bin/kyserial$suffix" term --port uart0 --device "$1"; }
  local bin=$1
  with_camera "$bin" hears_lens term
}

# examples PREFIX: every example of the installed tree is built where it is installed, against what is installed, and run.
examples() {
  local folder
  folder=$(dirname "$(find "$1" -path '*/Examples/FirstProgram.cpp')")
  cmake -S "$folder" -B "$work/examples" "${consumer_options[@]}" -DCMAKE_PREFIX_PATH="$1" \
    -DCMAKE_FIND_ROOT_PATH="$1" >"$work/configure.log" 2>&1 || { cat "$work/configure.log"; fail "configure"; }
  cmake --build "$work/examples" -j 2 >"$work/build.log" 2>&1 || { cat "$work/build.log"; fail "build"; }
  if [ -n "$toolchain" ]; then
    cp "$1"/bin/*.dll "$work/examples"
  fi
  ctest --test-dir "$work/examples" >"$work/test.log" 2>&1 || { cat "$work/test.log"; fail "an example"; }
  grep '100% tests passed' "$work/test.log"
  for example in NetworkCamera NetworkCameraC AnyCompiler; do
    with_camera "$1/bin" hears_lens "${run[@]}" "$work/examples/Example$example$suffix"
  done
}

# completed FILE WORD...: what the completion in bash offers for the last word.
completed() {
  bash -c 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); compopt() { :; }; _kyserial; echo "${COMPREPLY[*]}"' "$@"
}

# pages SHARE: a manual page for each command that the formatter takes without complaint, and completion.
pages() {
  local page found
  for page in kyserial kyserial-camera kyserial-term kyserial-i2c-get kyserial-spi-flash-write; do
    [ -e "$1/man/man1/$page.1.gz" ] || fail "no manual page $page"
  done
  for page in "$1"/man/man1/*.gz; do
    if command -v mandoc >/dev/null; then
      found=$(zcat "$page" | mandoc -T lint -W warning) || true
      [ -z "$found" ] || fail "$(basename "$page"): $found"
    fi
  done
  zcat "$1/man/man1/kyserial-term.1.gz" | grep -q -e 'fB.-.-baud' || fail "the page of term lacks --baud"
  found=$(completed "$1/bash-completion/completions/kyserial" kyserial te)
  [ "$found" = term ] || fail "completion of te: $found"
  found=$(completed "$1/bash-completion/completions/kyserial" kyserial term --port ua)
  [ "$found" = "uart0 uart1" ] || fail "completion of a port: $found"
  found=$(completed "$1/bash-completion/completions/kyserial" kyserial i2c eeprom w)
  [ "$found" = write ] || fail "completion of w: $found"
  found=$(completed "$1/bash-completion/completions/kyserial" kyserial term --eol-s)
  [ "$found" = "--eol-send --eol-show" ] || fail "completion of an option: $found"
  if command -v zsh >/dev/null; then
    zsh -n "$1/zsh/vendor-completions/_kyserial" || fail "zsh does not take its completion"
  fi
  if command -v fish >/dev/null; then
    fish -n "$1/fish/vendor_completions.d/kyserial.fish" || fail "fish does not take its completion"
    found=$(HOME=$work fish -c "source $1/fish/vendor_completions.d/kyserial.fish; complete -C 'kyserial te'" | cut -f 1)
    [ "$found" = term ] || fail "completion in fish: $found"
  fi
}

# refused NAME EXPECTED FIND...: find_package with these arguments has to fail, for the reason that is expected.
refused() {
  local name=$1 expected=$2
  shift 2
  mkdir "$work/$name"
  printf 'cmake_minimum_required(VERSION 3.25)\nproject(x LANGUAGES C)\nfind_package(KySerial %s)\n' "$*" \
    >"$work/$name/CMakeLists.txt"
  if cmake -S "$work/$name" -B "$work/$name/b" -DCMAKE_PREFIX_PATH="$tree" >"$work/$name/out" 2>&1; then
    fail "accepted: $*"
  fi
  grep -q "$expected" "$work/$name/out" || { cat "$work/$name/out"; fail "refused for another reason: $*"; }
}

case $case in
Tree)
  cmake --install "$build" --prefix "$tree" >"$work/install.log"
  talk "${run[@]}" "$tree/bin/kyserial$suffix"
  talk_over_network "$tree/bin"
  if [ -e "$build/pages/made" ]; then
    pages "$tree/share"
  fi
  # Nothing of the machine or of the sources may be needed by what others get.
  if grep -rlF -e "$source" -e "$build" "$tree/include" "$tree/$libraries/cmake" "$tree/$libraries/pkgconfig"; then
    fail "paths of the build"
  fi
  docs=$(dirname "$(find "$tree/share/doc" -name README.md -path '*/KySerial/*' -not -path '*/*/Docs/*' -not -path '*/Bindings/*')")
  python3 -B "$source/Tests/Docs/check_docs.py" --installed "$docs" || fail "links of the installed documentation"
  ;;
FindPackage)
  # In another place than it was installed to.
  mkdir "$work/moved"
  cp -a "$tree" "$work/moved/away"
  if grep -rlF "$tree" "$work/moved/away"; then
    fail "paths of the place of installation"
  fi
  build_and_run "$work/moved/away"
  ;;
Examples)
  examples "$tree"
  export PYTHONPATH=$tree/lib/python3/dist-packages KYSERIAL_LIBRARY_PATH=$tree/$libraries
  if [ -z "$toolchain" ]; then
    # Without what shells of developers have: the system's interpreter and the installed tree.
    folder=$(dirname "$(find "$tree" -name serial_port.py)")
    /usr/bin/python3 -B "$folder/serial_port.py" | grep 'STATUS READY ZOOM 0'
    with_camera "$tree/bin" hears_lens /usr/bin/python3 -B "$folder/network_camera.py"
  fi
  ;;
Wheel)
  wheel=$("$source/scripts/wheel.sh" "$build" "$work")
  mkdir "$work/site"
  (cd "$work/site" && cmake -E tar xf "$wheel")
  if [ -n "$toolchain" ]; then
    [[ $wheel == *-py3-none-win_amd64.whl ]] || fail "$wheel" # there is no interpreter for Windows here to try it with
    [ "$(find "$work/site/kyserial" -name '*.dll' | wc -l)" = 6 ] || fail "the wheel lacks libraries"
  else
    [[ $wheel == *-py3-none-linux_x86_64.whl ]] || fail "$wheel"
    # The libraries are the wheel's own: nothing says where others are.
    env -u KYSERIAL_LIBRARY_PATH -u LD_LIBRARY_PATH PYTHONPATH="$work/site" /usr/bin/python3 -B -c '
import kyserial, serial, kyserial.pyserial
assert kyserial.list_devices(timeout=0.01, address="127.0.0.1", port=9) == []
with serial.serial_for_url("ky://sim/uart0", timeout=20) as port:
    port.write(b"ID?\r\n")
    assert port.readline() == b"ID KYLENS 1.0\r\n"
print("wheel:", kyserial.__version__)' | grep "wheel: "
  fi
  ;;
Version)
  # A minor version of its own is another interface.
  refused minor 'compatible with requested' 0.2 REQUIRED
  refused component "no component KyNothing" 0.1 REQUIRED COMPONENTS KySerial KyNothing
  ;;
PkgConfig)
  export PKG_CONFIG_PATH=$tree/$libraries/pkgconfig
  c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror "$source/Tests/Install/Consumer/consumer.cpp" -o "$work/consumer" \
    $(pkg-config --cflags --libs kyserial clserzmo) -Wl,-rpath,"$tree/$libraries"
  "$work/consumer"
  cc -std=c11 -Wall -Wextra -Wpedantic -Werror "$source/Tests/Install/Consumer/consumer.c" -o "$work/consumer_c" \
    $(pkg-config --cflags --libs kysimulatorc) -Wl,-rpath,"$tree/$libraries"
  "$work/consumer_c"
  if [ "$has_gige" = yes ]; then
    c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror "$source/Tests/Install/Consumer/consumer_gige.cpp" -o "$work/gige" \
      $(pkg-config --cflags --libs kygige kyserial) -Wl,-rpath,"$tree/$libraries"
    "$work/gige" | grep '^address: good'
  fi
  # A file for each library, which the linker is content with.
  for library in "$tree/$libraries"/lib*.so; do
    name=$(basename "$library" .so)
    name=$(printf '%s' "${name#lib}" | tr '[:upper:]' '[:lower:]')
    [[ $(pkg-config --libs "$name") == *"-L"*"$libraries -l"* ]] || fail "no folder in $name.pc"
    printf 'int main(void) { return 0; }\n' | cc -x c - -o "$work/linked" $(pkg-config --libs "$name") || fail "$name.pc"
  done
  [ "$(pkg-config --modversion kyserialc)" = "$(pkg-config --modversion kyserial)" ] || fail "versions"
  ;;
Wrapper)
  # The wrapper for C++17 with each compiler that is here, also one that behaves as Microsoft's does.
  export PKG_CONFIG_PATH=$tree/$libraries/pkgconfig
  compilers=("c++ -std=c++17" "c++ -std=c++20")
  if command -v clang++ >/dev/null; then
    compilers+=("clang++ -std=c++17" "clang++ -std=c++17 -fms-extensions -fms-compatibility -fms-compatibility-version=19.30 -D__STRICT_ANSI__")
  fi
  for compiler in "${compilers[@]}"; do
    $compiler -Wall -Wextra -Wpedantic -Wconversion -Werror "$source/Examples/AnyCompiler.cpp" -o "$work/wrapper" \
      $(pkg-config --cflags --libs kysimulatorc kygigec) -Wl,-rpath,"$tree/$libraries" || fail "$compiler"
    "$work/wrapper" | grep 'STATUS READY ZOOM 0' || fail "$compiler"
  done
  ;;
AddSubdirectory)
  cmake -S "$source/Tests/Install/Subdirectory" -B "$work/consumer" "${consumer_options[@]}" \
    -DKYSERIAL_SOURCE="$source" >"$work/log" 2>&1 || { cat "$work/log"; fail "configure"; }
  # Everything is compiled in the build that these tests belong to. Here only the small libraries are, and what the
  # customer's own source sees of the others.
  cmake --build "$work/consumer" --target small consumer_source -j 2 >"$work/log" 2>&1 ||
    { cat "$work/log"; fail "build"; }
  [ "$("$work/consumer/small")" = "small: 1 line" ] || fail "the program against the small libraries said something else"
  cmake --build "$work/consumer" --target consumer -- -n >"$work/log" 2>&1 || { cat "$work/log"; fail "rules to link"; }
  grep -q 'libKySerial' "$work/log" || fail "the consumer does not link the library"
  if cmake --build "$work/consumer" --target kyserial >/dev/null 2>&1; then
    fail "a customer's project would build our program"
  fi
  ;;
Source)
  archive=$("$source/scripts/package.sh" --source "$work")
  tar xf "$archive" -C "$work"
  unpacked=$(ls -d "$work"/kyserial-*/)
  [ "$(cd "$unpacked" && find . -type f -o -type l | wc -l)" = "$(git -C "$source" ls-files --deduplicate | wc -l)" ] ||
    fail "the tarball does not have the files of the repository"
  again=$("$source/scripts/package.sh" --source "$work/again")
  cmp "$archive" "$again" || fail "the same files make another tarball"
  cmake -S "$unpacked" -B "$work/build" "${consumer_options[@]}" -DKYSERIAL_BUILD_TESTS=OFF >"$work/log" 2>&1 ||
    { cat "$work/log"; fail "configure"; }
  # Everything is compiled in the build that these tests belong to. Here a library is, and what the rules want is there.
  cmake --build "$work/build" --target JxUtilsLib -j 2 >"$work/log" 2>&1 || { cat "$work/log"; fail "build"; }
  [ -e "$work/build/lib/libJxUtilsLib.so" ] || fail "no library"
  cmake --build "$work/build" -- -n >"$work/log" 2>&1 || { cat "$work/log"; fail "rules"; }
  grep -q 'bin/kyserial$' "$work/log" || fail "the program is not built"
  ;;
Debian)
  (cd "$build" && cpack -G DEB -B "$work/packages") >"$work/log" 2>&1 || { cat "$work/log"; fail "cpack"; }
  packages="libkyserial0 libkyserial-dev kyserial python3-kyserial"
  if [ "$has_gige" = yes ]; then
    packages+=" libkygige0 libkygige-dev"
  fi
  for package in $packages; do
    file=$(ls "$work/packages/${package}_"*.deb) || fail "no $package"
    dpkg -x "$file" "$work/root"
    dpkg-deb --field "$file" Package Version Depends | tee -a "$work/fields"
  done
  grep -q 'Depends: .*libc6 .*' "$work/fields" || fail "the libraries depend on nothing"
  grep -q 'Depends: libkyserial0 (= ' "$work/fields" || fail "libkyserial-dev does not depend on the libraries"
  for package in $packages; do
    for file in copyright changelog.gz; do
      [ -s "$work/root/usr/share/doc/$package/$file" ] || fail "no $file of $package"
    done
  done
  for library in libkyserial0 libkygige0; do
    for file in triggers shlibs; do
      dpkg-deb --info "$(ls "$work/packages/${library}_"*.deb)" "$file" >/dev/null || fail "no $file of $library"
    done
    ! dpkg-deb --info "$(ls "$work/packages/${library}_"*.deb)" postinst >/dev/null 2>&1 || fail "$library calls ldconfig"
  done
  # Where systems of several architectures keep them, and where the linker's cache looks.
  architecture=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
  for file in libKySerialC.so.0 libKySerial.so pkgconfig/kyserial.pc cmake/KySerial/KySerialConfig.cmake; do
    [ -e "$work/root/usr/lib/$architecture/$file" ] || fail "no $file in lib/$architecture"
  done
  dpkg-deb --ctrl-tarfile "$(ls "$work/packages/python3-kyserial_"*.deb)" | tar tv | grep -q '^-rwxr-xr-x.* ./prerm$' ||
    fail "python3-kyserial leaves compiled files"
  talk "$work/root/usr/bin/kyserial"
  [ -x "$work/root/usr/bin/kyserial-camera" ] || fail "no camera program"
  PYTHONPATH=$work/root/usr/lib/python3/dist-packages KYSERIAL_LIBRARY_PATH=$work/root/usr/$libraries /usr/bin/python3 -B -c '
import kyserial
with kyserial.SimulatedCamera() as camera:
    camera.plug("uart0", "lens")
    with kyserial.Port(camera, "uart0", timeout=20) as port:
        port.write(b"ID?\r\n")
        assert port.readline() == b"ID KYLENS 1.0\r\n"'
  build_and_run "$work/root/usr"
  ;;
Zip)
  (cd "$build" && cpack -G ZIP -B "$work/packages") >"$work/log" 2>&1 || { cat "$work/log"; fail "cpack"; }
  (cd "$work" && cmake -E tar xf packages/*.zip)
  root=$(ls -d "$work"/KySerial-*)
  ls "$root"/bin "$root"/lib
  [ -s "$root/share/doc/KySerial/README.md" ] || fail "no README"
  [ -s "$root/share/doc/KySerial/Docs/getting-started.md" ] || fail "no Docs"
  talk "${run[@]}" "$root/bin/kyserial.exe"
  talk_over_network "$root/bin"
  for file in bin/KyGigE.dll lib/libKyGigE.dll.a include/KyGigE/GigEDeviceAdapter.h lib/pkgconfig/kygige.pc; do
    [ -s "$root/$file" ] || fail "no $file"
  done
  build_and_run "$root"
  # A program for the adapter by what pkg-config says about the archive, wherever it was unpacked. The zip does not
  # contain the compiler's runtime, so the program does. With "-static" alone the linker finds no import libraries.
  PKG_CONFIG_LIBDIR=$root/lib/pkgconfig pkg-config --cflags --libs kygige kyserial >"$work/flags"
  x86_64-w64-mingw32-g++-posix -std=c++17 -Wall -Wextra -Wpedantic -Werror \
    "$source/Tests/Install/Consumer/consumer_gige.cpp" -static -Wl,-Bdynamic $(cat "$work/flags") -Wl,-Bstatic \
    -o "$root/bin/gige.exe"
  "${run[@]}" "$root/bin/gige.exe" | grep '^address: good'
  # The C program once more, with the import libraries for other linkers, which have every function.
  for library in KySerialC KyGigEC KySimulatorC clserzmo; do
    [ -s "$root/lib/$library.lib" ] || fail "no $library.lib"
    names=$(sed 1,2d "$root/lib/$library.def" | wc -l)
    [ "$names" = "$(x86_64-w64-mingw32-objdump -p "$root/bin/$library.dll" |
      sed -n '/Ordinal\/Name Pointer/,/^$/p' | grep -c '^[[:space:]]*\[ *[0-9]')" ] || fail "$library.def has not every export"
  done
  x86_64-w64-mingw32-gcc-posix -std=c11 -I"$root/include" "$source/Tests/Install/Consumer/consumer.c" \
    "$root/lib/KySerialC.lib" "$root/lib/KySimulatorC.lib" -o "$root/bin/other.exe"
  "${run[@]}" "$root/bin/other.exe" | grep 'ID KYLENS 1.0'
  # As Microsoft's compiler and linker do it: their target, object format and linker, none of their headers.
  printf 'LIBRARY kernel32.dll\nEXPORTS\nGetStdHandle\nWriteFile\nExitProcess\n' >"$work/kernel32.def"
  llvm-dlltool -m i386:x86-64 -d "$work/kernel32.def" -l "$work/kernel32.lib"
  clang --target=x86_64-pc-windows-msvc -std=c11 -ffreestanding -Wall -Wextra -Werror -I"$root/include" \
    -c "$source/Tests/Install/Consumer/microsoft.c" -o "$work/microsoft.obj"
  lld-link /nologo /entry:Start /subsystem:console /nodefaultlib /out:"$root/bin/microsoft.exe" "$work/microsoft.obj" \
    "$root/lib/KySerialC.lib" "$root/lib/KySimulatorC.lib" "$work/kernel32.lib"
  "${run[@]}" "$root/bin/microsoft.exe" | grep 'ID KYLENS 1.0' || fail "the program for the Microsoft linker"
  # The wrapper, by a compiler that the libraries were not made with as far as C++ goes: C++17, C functions only.
  x86_64-w64-mingw32-g++-posix -std=c++17 -static -Wall -Wextra -Wpedantic -Werror -I"$root/include" \
    "$source/Examples/AnyCompiler.cpp" "$root/lib/KySerialC.lib" "$root/lib/KySimulatorC.lib" "$root/lib/KyGigEC.lib" \
    -o "$root/bin/wrapper.exe"
  "${run[@]}" "$root/bin/wrapper.exe" | grep 'STATUS READY ZOOM 0'
  ;;
*)
  fail "no case $case"
  ;;
esac
