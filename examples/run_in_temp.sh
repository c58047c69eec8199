#!/bin/bash
# Runs plain_host in a fresh temporary folder and removes the folder after:
#   run_in_temp.sh PLAIN_HOST LIBRARY ARGS... [--then ARGS...]
# The run gets LIBRARY and <folder>/data as its data folder, and the folder
# as its working directory (the module's file log goes to <folder>/temp).
# After "--then" come the arguments of a second run on the same data folder,
# made only if the first succeeded. Exits with the status of the last run made.
set -u
program=$1
library=$2
shift 2
first=()
second=()
then_given=false
for arg in "$@"; do
  if [ "$arg" = --then ]; then
    then_given=true
  elif $then_given; then
    second+=("$arg")
  else
    first+=("$arg")
  fi
done

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
mkdir "$work/temp" && cd "$work" || exit 1
"$program" "$library" "$work/data" "${first[@]}" || exit
if $then_given; then
  "$program" "$library" "$work/data" "${second[@]}"
fi
