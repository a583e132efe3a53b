# To be sourced. need PACKAGE ... installs those of Debian's packages that are missing.
need() {
  local missing
  missing=$(for p in "$@"; do dpkg -s "$p" >/dev/null 2>&1 || echo "$p"; done)
  [ -z "$missing" ] || apt-get install -qq -y --no-install-recommends $missing >/dev/null \
    || { echo "These packages are missing and could not be installed:" $missing; exit 1; }
}

# build_for PYTHON NAME [CMake options] builds the module for an interpreter of this version
# in build/NAME and puts it, the tests and the packages of the environment on that interpreter's path.
build_for() {
  local python=$1 build=$PWD/build/$2 bin=$PWD/${VENV:-.venv}/bin packages
  packages=$("$bin/python" -c 'import sysconfig; print(sysconfig.get_path("purelib"))')
  PYTHONPATH=$packages "$bin/cmake" -S . -B "$build" -G Ninja -DCMAKE_MAKE_PROGRAM="$bin/ninja" \
    -DPython_EXECUTABLE="$python" -DTYPED_SHAPES_WERROR=ON -DCMAKE_INSTALL_PREFIX="$build/site" "${@:3}" >/dev/null
  "$bin/cmake" --build "$build" --target install >/dev/null
  export PYTHONPATH="$build/site:$PWD/cli:$PWD/tests:$packages"
}
