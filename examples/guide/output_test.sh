#!/usr/bin/env bash
# output_test.sh PROGRAM LINES: what the program prints, and that it ends with 0.
set -euo pipefail

printed=$("$1")
diff <(printf '%b\n' "$2") <(echo "$printed")
