#!/usr/bin/env bash
# Writes the man page and the bash completion file of TOOL (a built binary) from what its --help
# says: OUTDIR/man/NAME.1 through help2man, OUTDIR/completion/NAME. A tool whose help has a
# "Commands:" section gets a COMMANDS section with each command's --help in its man page, and
# its commands completed first, then each command's own options; other tools get their
# options. An option whose value is shown as a choice ("--level=V|D|I") completes those values,
# less the placeholders in capitals ("URI"); a placeholder the help lists ("NAME is one of:")
# completes the listed names, as an option's value or as a parameter where the usage line puts
# it, and so do the usage's literal words ("clear"); other parameters complete as file names.
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

# The lists a help gives as "PLACEHOLDER is one of:", then a line each, its syntax first: one
# line "PLACEHOLDER NAME WORD" per entry, WORD being what completes (NAME, or "NAME=" when the
# entry takes a value).
choice_entries() {
  awk '/^[A-Z][A-Z0-9_]* is one of:$/ { list = $1; next }
       list != "" && /^  [^ ]/ { name = $1; sub(/=.*/, "", name)
                                 print list, name, name (index($1, "=") ? "=" : ""); next }
       list != "" && /^    / { next }
       { list = "" }'
}

# The values of an option or of a listed NAME ("--level=V|D|I|W|E|F", "cloud-fail=a|b") ->
# "--level) values="V D I W E F" ;;", one case a line; an option whose value is a listed
# PLACEHOLDER ("--scenario=NAME") takes the list's names.
value_cases() {
  local help
  help=$("$@" --help 2>/dev/null)
  { printf '%s\n' "$help" |
    grep -oE -- '(^  |--)[a-z][a-z0-9-]*=[A-Za-z0-9_.-]+(\|[A-Za-z0-9_.-]+)+' || true; } |
    sed 's/^  //' | sort -u | while IFS='=' read -r option choices; do
      values=$(printf '%s' "$choices" | tr '|' '\n' | grep -vE '^[A-Z][A-Z0-9_]+$' | tr '\n' ' ')
      echo "      $option) values=\"${values% }\" ;;"
    done
  { printf '%s\n' "$help" | grep -oE -- '--[a-z][a-z0-9-]*=[A-Z][A-Z0-9_]*' || true; } |
    sort -u | while IFS='=' read -r option placeholder; do
      values=$(printf '%s\n' "$help" | choice_entries | awk -v p="$placeholder" '$1 == p { print $2 }' |
        tr '\n' ' ')
      [ -z "$values" ] || echo "      $option) values=\"${values% }\" ;;"
    done
}

# The words each parameter of a command's usage ("DIR NAME[=VALUE] | DIR clear [NAME] | DIR
# list") completes, by its place among the parameters: the literal words, and the listed
# values of a PLACEHOLDER ("NAME=" where it takes one). One case a line.
position_cases() {
  local help usage
  help=$("$@" --help 2>/dev/null)
  usage=$(printf '%s\n' "$help" | sed -n '2p' | sed -n 's/^[^[]*\[OPTION[^]]*\] *//p')
  [ -n "$usage" ] || return 0
  printf '%s\n' "$help" | choice_entries |
    awk -v usage="$usage" '
      { bare[$1] = bare[$1] " " $2; assign[$1] = assign[$1] " " $3 }
      END {
        n = split(usage, alternatives, / \| /)
        for (a = 1; a <= n; ++a) {
          count = split(alternatives[a], tokens, " ")
          for (i = 1; i <= count; ++i) {
            token = tokens[i]; gsub(/^\[|\]$/, "", token)
            name = token; sub(/[[=].*/, "", name)
            if (name ~ /^[a-z][a-z0-9-]*$/) words[i - 1] = words[i - 1] " " name
            else if (name in bare) words[i - 1] = words[i - 1] (token ~ /=/ ? assign[name] : bare[name])
          }
        }
        for (i in words) printf "      %d) words=\"%s\" ;;\n", i, substr(words[i], 2)
      }' | sort
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

# The case statement that completes the parameter under the cursor by its place.
emit_positions() {
  local cases
  cases=$(position_cases "$@")
  [ -n "$cases" ] || return 0
  echo "    case \$(${function_name}_position \"$(valued_options "$@")\") in"
  printf '%s\n' "$cases"
  echo '    esac'
}

# The options whose value may follow as a word of its own ("--set 3").
valued_options() {
  "$@" --help 2>/dev/null | grep -oE -- '--[a-z][a-z0-9-]*=' | tr -d '=' | sort -u | tr '\n' ' ' |
    sed 's/ $//'
}

help=$("$tool" --help 2>&1)
commands=$(printf '%s\n' "$help" | sed -n '/^Commands:/,/^$/p' | grep -oE '^  [a-z][a-z0-9-]*' |
  tr -d ' ' | tr '\n' ' ' | sed 's/ $//' || true)
function_name="_$(printf '%s' "$name" | tr -c 'a-zA-Z0-9\n' '_')"

{
  echo "# bash completion for $name, generated from its --help; do not edit."
  # The place of the word under the cursor among the command's parameters, from 0: options and
  # their values do not count, nor readline's "=" and the word after it.
  echo "${function_name}_position() {"
  echo '  local i position=0'
  echo '  for ((i = 2; i < COMP_CWORD; i++)); do'
  echo '    if [ "${COMP_WORDS[i]}" = "=" ]; then i=$((i + 1))'
  echo '    elif [[ " $1 " == *" ${COMP_WORDS[i]} "* ]]; then i=$((i + 1))'
  echo '    elif [[ ${COMP_WORDS[i]} != -* ]]; then position=$((position + 1)); fi'
  echo '  done'
  echo '  echo $position'
  echo '}'
  echo "$function_name() {"
  echo '  local cur=${COMP_WORDS[COMP_CWORD]} options values="" words="" option=${COMP_WORDS[COMP_CWORD-1]}'
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
      emit_positions "$tool" "$command"
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
  echo '  elif [ -n "$words" ]; then'
  echo '    COMPREPLY=($(compgen -W "$words" -- "$cur"))'
  echo '    # "NAME=" waits for its value.'
  echo '    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then compopt -o nospace 2>/dev/null; fi'
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
