#!/bin/sh
# Prints the C++ line counts of the product (src/) and of the tests (tests/ and fuzz/), and the
# tests' share of the two: test / (test + product). Lines are counted without blank lines and
# without lines that hold only a comment; test data and installed node packages are left out.
set -eu
cd "$(dirname "$0")/.."

count() {
  find "$@" \( -name data -o -name node_modules -o -name seeds \) -prune -o \
    -type f \( -name '*.cpp' -o -name '*.h' \) -print |
    xargs cat |
    awk '
      inblock { if (index($0, "*/")) { inblock = 0; rest = substr($0, index($0, "*/") + 2)
                  if (rest ~ /[^ \t]/ && rest !~ /^[ \t]*\/\//) n++ }
                next }
      /^[ \t]*$/ || /^[ \t]*\/\// { next }
      /^[ \t]*\/\*/ { if (!index($0, "*/")) { inblock = 1; next }
                      rest = substr($0, index($0, "*/") + 2)
                      if (rest !~ /[^ \t]/ || rest ~ /^[ \t]*\/\//) next }
      { n++ }
      END { print n + 0 }'
}

product=$(count src)
tests=$(count tests fuzz)
echo "product lines: $product"
echo "test lines:    $tests"
awk -v p="$product" -v t="$tests" 'BEGIN { printf "test share:    %.1f %%\n", 100 * t / (p + t) }'
