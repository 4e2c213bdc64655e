#!/usr/bin/env bash
# Writes the manual pages tarvel(1), tarvel-backend(1) and tarvel(3), from the pages of docs/, the
# help texts of the tools and the C++ header. Usage: manuals.sh TARVEL TARVEL_BACKEND OUTPUT_DIR
# shellcheck disable=SC2016  # Backticks and dollars are for the pages.
set -euo pipefail
tarvel=$1 backend=$2 output=$3
source=$(dirname "$0")/../..
date=$(sed -n 's/^## [0-9.]* - //p;T;q' "$source/CHANGELOG.md")  # Of the latest release.
version=$("$tarvel" --version | cut -d' ' -f2)

# Links lead nowhere in a manual page. Its own page has no title of the markdown.
prose() { sed -E '/^# /d; /^!\[/d; s/^#(#+) /\1 /; s/\[([^]]*)\]\([^)]*\)/\1/g' "$@"; }
code() { printf '\n```\n%s\n```\n' "$(cat)"; }
section() { printf '\n# %s\n\n' "$1"; }

page() {  # NAME SECTION ONE_LINE: from the markdown of standard input.
  { section NAME; echo "$1 - $3"; cat; } |
    lowdown -s -Tman -M title="$1" -M section="$2" -M volume=tarvel -M source="tarvel $version" \
      -M date="$date" | gzip -9n >"$output/$1.$2.gz"
}

{
  section SYNOPSIS
  printf '`tarvel` `run`|`links` `--lbs` *URL* `--token` *KEY* [*option*]...\n\n'
  printf '`tarvel` `resolve` *HOST*... [*option*]...\n'
  section DESCRIPTION
  prose "$source/docs/cli.md"
  section OPTIONS
  "$tarvel" --help-all | sed '1,/^Usage/d' | code
  section "SEE ALSO"
  echo 'tarvel-backend(1), tarvel(3)'
} | page tarvel 1 "command-line client for experiments with your own servers"

{
  section SYNOPSIS
  printf '`tarvel-backend` *answers* `--listen`|`--tls-listen` *ADDRESS:PORT* [*option*]...\n\n'
  printf '`tarvel-backend` `lab` *file* [`--report` *file*] `--` *program* [*argument*]...\n'
  section DESCRIPTION
  prose "$source/docs/backend.md"
  section "THE FAULT LAB"
  prose "$source/docs/lab.md"
  section OPTIONS
  "$backend" --help | sed '1,/^Options/d' | code
  section "SEE ALSO"
  echo 'tarvel(1)'
} | page tarvel-backend 1 "LBS and HTTPDNS servers that fail on request"

{
  section SYNOPSIS
  printf '`#include <tarvel/client.h>`\n\n'
  echo 'c++ -std=c++17 program.cc $(pkg-config --cflags --libs tarvel)' | code
  section DESCRIPTION
  sed -n '/^# tarvel/,/^Time until/{/^Time until/d; p}' "$source/README.md" | prose
  section EXAMPLE
  sed -n '/^## A client program/,/^Link a program/{/^##/d; /^Link a program/d; p}' "$source/README.md" | prose
  section INTERFACE
  sed -n '/^namespace tarvel {/,/^ private:/{/^ private:/d; s|///<*|//|; p}' "$source/include/tarvel/client.h" | code
  section SECURITY
  sed -n '/^## Security/,/^## Read on/{/^##/d; p}' "$source/README.md" | prose
  section "SEE ALSO"
  echo 'tarvel(1), tarvel-backend(1)'
} | page tarvel 3 "client-side high-availability network library"
