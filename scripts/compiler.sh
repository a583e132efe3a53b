#!/usr/bin/env bash
# Say in one line what is wrong with the C++ compiler that CMake would take; silent where nothing is.
set -euo pipefail

if [ -n "${CXX:-}" ]; then
  read -r -a compiler <<<"$CXX" # CMake, too, takes the first word for the program
  command -v "${compiler[0]}" >/dev/null \
    || { echo "CXX is '$CXX', and there is no program '${compiler[0]}': set it to a C++ compiler, or unset it"; exit 1; }
else
  compiler=("$(command -v c++ g++ clang++ | head -n 1 || true)")
  [ -n "${compiler[0]}" ] || { echo "A C++ compiler is missing (Debian: the package g++)"; exit 1; }
fi

# Something of each kind that the sources need of the language and of its library, linked as well: a
# compiler for C takes C++ and does not find its library.
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
said=$("${compiler[@]}" -std=c++20 -x c++ - -o "$folder/probe" 2>&1 <<'PROGRAM'
#include <bit>
#include <span>
#include <stdexcept>
#include <string_view>
struct Table {
  const char* name;
  std::size_t size;
};
consteval std::size_t length(std::string_view text) { return text.size(); }
template <Table table>
concept HasRows = requires { requires table.size > 0; };
thread_local constinit int level = 0;
int main(int count, char**) {
  int values[] = {1, 2, 3};
  for (std::span all(values); int value : all.subspan(1)) level += value;
  constexpr Table table{.name = nullptr, .size = length("four")};
  static_assert(HasRows<table> && std::has_single_bit(table.size));
  if (count > 1) throw std::out_of_range("");
  return level - 5;
}
PROGRAM
) || true
[ -x "$folder/probe" ] || {
  echo "'${CXX:-${compiler[0]}}' does not build a program in C++20 (GCC 11 and Clang 14 do); it says:" \
    "$(grep -m 1 -iE 'error|undefined' <<<"$said" || head -n 1 <<<"${said:-nothing}")"
  exit 1
}
