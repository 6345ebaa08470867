#!/bin/sh
# readme_example.sh ROOT: the program in README.md is examples/first_app.cpp, and short.
set -eu
cd "$1"
sed -n '/^```cpp$/,/^```$/p' README.md | sed '1d;/^```$/,$d' | diff - examples/first_app.cpp
lines=$(wc -l <examples/first_app.cpp)
[ "$lines" -le 40 ] || { echo "first_app.cpp has $lines lines"; exit 1; }
