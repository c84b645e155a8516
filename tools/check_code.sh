#!/usr/bin/env bash
# Checks the module's C++ with clang-format (layout) and clang-tidy (static
# checks), as configured in .clang-format and .clang-tidy.
#   tools/check_code.sh            every C++ source of the module
#   tools/check_code.sh FILE...    only these files
#   tools/check_code.sh --fix ...  rewrite the layout in place instead of checking it
# Exits non-zero on any finding.
set -euo pipefail
cd "$(dirname "$0")/.."

FIX=0
if [ "${1:-}" = "--fix" ]; then FIX=1; shift; fi

if ! command -v clang-format >/dev/null || ! command -v clang-tidy >/dev/null; then
  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq clang-format clang-tidy
fi

if [ $# -gt 0 ]; then
  FILES=()
  for f in "$@"; do
    case "$f" in *.cpp | *.hpp) FILES+=("$f") ;; *) echo "skipped (not C++): $f" >&2 ;; esac
  done
else
  mapfile -t FILES < <(find src -name '*.cpp' -o -name '*.hpp' | sort)
fi

status=0
echo "== clang-format (${#FILES[@]} files)"
if [ $FIX = 1 ]; then
  clang-format -i "${FILES[@]}"
elif ! clang-format --dry-run -Werror "${FILES[@]}"; then
  status=1
fi

# clang-tidy needs the compile commands of a configured build.
BUILD=${RAID_CHECK_BUILD:-build/check}
if [ ! -f "$BUILD/compile_commands.json" ]; then
  cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
    -DPython_EXECUTABLE="$(command -v python3)" >/dev/null
fi
SOURCES=()
for f in "${FILES[@]}"; do
  case "$f" in *.cpp) SOURCES+=("$f") ;; esac
done
echo "== clang-tidy (${#SOURCES[@]} sources)"
if [ ${#SOURCES[@]} -gt 0 ]; then
  if ! clang-tidy -p "$BUILD" --quiet "${SOURCES[@]}" 2>/dev/null; then
    status=1
  fi
fi
[ $status = 0 ] && echo "clean"
exit $status
