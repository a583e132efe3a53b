#!/usr/bin/env bash
# Build an interpreter that hides nothing: CPython 3.11 from Debian's sources with assertions and
# AddressSanitizer, without free lists and without an allocator of its own. It is kept in
# build/instrumented; the last line printed is its path.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/build_for.sh
mkdir -p "${TYPED_SHAPES_INSTRUMENTED:=build/instrumented}"
cache=$(cd "$TYPED_SHAPES_INSTRUMENTED" && pwd)
stock=$PWD/.venv/bin/python
if [ -e "$cache/python" ]; then echo "$cache/python"; exit; fi

need dpkg-dev g++ make libssl-dev libffi-dev zlib1g-dev libbz2-dev liblzma-dev libsqlite3-dev

# A package list of its own, of the machine's own mirrors: its settings stay as they are.
mkdir -p "$cache/apt/parts" "$cache/apt/lists/partial" "$cache/apt/archives/partial"
for list in /etc/apt/sources.list /etc/apt/sources.list.d/debian.sources; do
  [ ! -e "$list" ] || sed 's/^Types: deb$/Types: deb-src/; s/^deb /deb-src /' "$list" >"$cache/apt/parts/${list##*/}"
done
apt=(-qq -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$cache/apt/parts"
  -o Dir::State::Lists="$cache/apt/lists" -o Dir::Cache="$cache/apt" -o APT::Sandbox::User=root)
apt-get "${apt[@]}" update
# The newest one that the mirror really has.
cd "$cache/apt"
for version in $(apt-cache "${apt[@]}" showsrc --only-source python3.11 | sed -n 's/^Version: //p' | sort -urV); do
  apt-get "${apt[@]}" source "python3.11=$version" >source.log 2>&1 && break
done
cd python3.11-*/ || { tail -n 3 source.log; exit 1; }

echo "building CPython $version; the log is $cache/build.log"
# Some checks of configure leak on purpose. Byte code comes from the stock interpreter, which is of the
# same version and not slowed down.
{
  export ASAN_OPTIONS=detect_leaks=0
  ./configure --prefix="$cache/$version" --with-pydebug --with-address-sanitizer --without-pymalloc \
    --without-freelists --with-ensurepip=no
  make -j2
  make altbininstall inclinstall libainstall sharedinstall
  make libinstall PYTHON_FOR_BUILD=true TESTSUBDIRS=
  "$stock" -m compileall -q "$cache/$version/lib"
} >"$cache/build.log" 2>&1 || { tail -n 20 "$cache/build.log"; exit 1; }
ln -s "$version/bin/python3.11" "$cache/python"
rm -rf "$cache/apt"
echo "$cache/python"
