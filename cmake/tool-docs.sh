#!/usr/bin/env bash
# Writes the man page and the bash completion file of TOOL (a built binary) from what its --help
# says: OUTDIR/man/NAME.1 through help2man, OUTDIR/completion/NAME. A tool whose help has a
# "Commands:" section gets a COMMANDS section with each command's --help in its man page, and
# its commands completed first, then each command's own options; other tools get their
# options. An option whose value is shown as a choice ("--level=V|D|I") completes those values,
# less the placeholders in capitals ("URI"); other parameters complete as file names.
# Usage: tool-docs.sh TOOL NAME DESCRIPTION VERSION OUTDIR
set -euo pipefail
tool=$1
name=$2
description=$3
version=$4
outdir=$5
mkdir -p "$outdir/man" "$outdir/completion"
output=$outdir/completion/$name

long_options() {
  grep -oE -- '(^|[ ,\[|])--[a-z][a-z0-9-]*' | sed 's/^[ ,[|]*//' |
    sort -u | tr '\n' ' ' | sed 's/ $//'
}

options_of() {
  "$@" --help 2>/dev/null | long_options
}

# "--level=V|D|I|W|E|F" -> "--level) values="V D I W E F" ;;", one case a line.
value_cases() {
  { "$@" --help 2>/dev/null | grep -oE -- '--[a-z][a-z0-9-]*=[A-Za-z0-9_.-]+(\|[A-Za-z0-9_.-]+)+' ||
    true; } | sort -u | while IFS='=' read -r option choices; do
      values=$(printf '%s' "$choices" | tr '|' '\n' | grep -vE '^[A-Z][A-Z0-9_]+$' | tr '\n' ' ')
      echo "      $option) values=\"${values% }\" ;;"
    done
}

# The case statement that completes the value of the option before the cursor ("--opt V" or
# "--opt=V"), for a command's help.
emit_values() {
  local cases
  cases=$(value_cases "$@")
  [ -n "$cases" ] || return 0
  echo '    case $option in'
  printf '%s\n' "$cases"
  echo '    esac'
}

help=$("$tool" --help 2>&1)
commands=$(printf '%s\n' "$help" | sed -n '/^Commands:/,/^$/p' | grep -oE '^  [a-z][a-z0-9-]*' |
  tr -d ' ' | tr '\n' ' ' | sed 's/ $//' || true)
function_name="_$(printf '%s' "$name" | tr -c 'a-zA-Z0-9\n' '_')"

{
  echo "# bash completion for $name, generated from its --help; do not edit."
  echo "$function_name() {"
  echo '  local cur=${COMP_WORDS[COMP_CWORD]} options values="" option=${COMP_WORDS[COMP_CWORD-1]}'
  echo '  if [ "$cur" = "=" ]; then cur=""; elif [ "$option" = "=" ]; then option=${COMP_WORDS[COMP_CWORD-2]}; fi'
  if [ -n "$commands" ]; then
    echo '  if [ "$COMP_CWORD" -eq 1 ]; then'
    own=$(printf '%s\n' "$help" | sed -n '/^Options:/,$p' | long_options)
    echo "    COMPREPLY=(\$(compgen -W \"$commands $own\" -- \"\$cur\"))"
    echo '    return'
    echo '  fi'
    echo '  case ${COMP_WORDS[1]} in'
    for command in $commands; do
      echo "    $command)"
      echo "    options=\"$(options_of "$tool" "$command")\""
      emit_values "$tool" "$command"
      echo '    ;;'
    done
    echo '    *) options="" ;;'
    echo '  esac'
  else
    echo "  options=\"$(options_of "$tool")\""
    emit_values "$tool"
  fi
  echo '  if [ -n "$values" ]; then'
  echo '    COMPREPLY=($(compgen -W "$values" -- "$cur"))'
  echo '  elif [[ $cur == -* ]]; then'
  echo '    COMPREPLY=($(compgen -W "$options" -- "$cur"))'
  echo '  else'
  echo '    COMPREPLY=($(compgen -f -- "$cur"))'
  echo '  fi'
  echo '}'
  echo "complete -o filenames -F $function_name $name"
} >"$output.tmp"
mv "$output.tmp" "$output"

# The man page; each command's help goes in verbatim, escaped for roff. GLib's usage line says
# "[OPTION…]", which help2man would turn into "[OPTION???]": help2man reads the tool through a
# wrapper that spells it in ASCII.
ascii() { sed -e 's/\xe2\x80\xa6/.../g'; }
include=$(mktemp)
wrapdir=$(mktemp -d)
wrapper=$wrapdir/$name
trap 'rm -rf "$include" "$wrapdir"' EXIT
printf '#!/bin/sh\n"%s" "$@" 2>&1 | sed -e "s/\\xe2\\x80\\xa6/.../g"\n' "$tool" >"$wrapper"
chmod +x "$wrapper"
include_option=()
if [ -n "$commands" ]; then
  include_option=(--include="$include")
  echo "[COMMANDS]" >"$include"
  for command in $commands; do
    echo ".SS \"$name $command\""
    echo ".nf"
    "$tool" "$command" --help | ascii | sed -e 's/\\/\\e/g' -e "s/^\([.']\)/\\\\\&\1/"
    echo ".fi"
  done >>"$include"
fi
help2man --no-info --no-discard-stderr --section=1 --version-string="$version" \
  --name="$description" "${include_option[@]}" --output="$outdir/man/$name.1.tmp" "$wrapper"
mv "$outdir/man/$name.1.tmp" "$outdir/man/$name.1"
