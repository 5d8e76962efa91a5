# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Builds the documentation site into build/docs/html: the pages of docs and the reference of the headers.
# A dead link in a Markdown file, a class without a description, and anything that Doxygen does not
# understand is an error. Single members may do without: a comment that repeats a name is useless.
#   scripts/check docs
[ $# -eq 0 ] || wrong_usage "unknown argument $1"
needs doxygen
tests/house/check_links.sh .
rm -rf build/docs
mkdir -p build/docs
ZEPHLY_VERSION=$(sed -nE 's/^project\(Zephly VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
export ZEPHLY_VERSION
doxygen docs/Doxyfile
if grep -vE 'warning: Member .* is not documented\.$' build/docs/warnings.txt; then
  echo "error: the lines above" >&2
  exit 1
fi
# Doxygen ignores a picture that it does not find.
if missing=$(cd build/docs/html && grep -ohE '<(img|object)[^>]*(src|data)="[^"]+"' ./*.html |
  sed -E 's/.*(src|data)="([^"]+)"/\2/' | sort -u | while read -r picture; do
    [[ $picture == *://* || -e $picture ]] || echo "$picture"
  done) && [ -n "$missing" ]; then
  echo "error: pictures missing in the site: $missing" >&2
  exit 1
fi
echo "docs: build/docs/html/index.html"
