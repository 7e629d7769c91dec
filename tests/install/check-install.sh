#!/usr/bin/env bash
# Installs the build in BUILD_DIR into a temporary prefix and checks what a user gets: the
# binaries, the manifest, man pages and bash completion made from the tools' --help.
set -euo pipefail
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
failures=0
checks=0
check() {
  checks=$((checks + 1))
  if ! eval "$2"; then
    echo "FAIL: $1"
    failures=$((failures + 1))
  fi
}

cmake --install "$build" --prefix "$prefix" >/dev/null
for tool in morvik-service morvik-emu morvik-bench; do
  check "$tool is installed" '[ -x "$prefix/bin/$tool" ]'
  check "$tool has a man page" 'grep -q "^\.TH \"\?${tool^^}" "$prefix/share/man/man1/$tool.1"'
  check "$tool has a completion" '[ -s "$prefix/share/bash-completion/completions/$tool" ]'
done
check "the manifest is installed" \
  'grep -q "com.talvoro.morvik.service" "$prefix/share/packages/com.talvoro.morvik.service.xml"'
check "the man page has every command's help" \
  'grep -q "^\.SS \"morvik-emu doctor\"" "$prefix/share/man/man1/morvik-emu.1"'
check "the usage lines read in any locale" \
  '! grep -l -e "???" -e "$(printf "\xe2\x80\xa6")" "$prefix"/share/man/man1/*.1'
check "the man page has a command's options" \
  'grep -q -- "--pretty" "$prefix/share/man/man1/morvik-emu.1"'

# What the completion offers for the words typed so far; the last word is the one completed.
complete_words() {
  bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _morvik_emu
           echo "${COMPREPLY[*]}"' _ "$prefix/share/bash-completion/completions/morvik-emu" "$@"
}
check "commands complete" '[ "$(complete_words morvik-emu do)" = doctor ]'
check "a command's options complete" '[ "$(complete_words morvik-emu export c --p)" = --pretty ]'
check "top-level options complete" '[ "$(complete_words morvik-emu --v)" = --version ]'
check "other commands' options do not" '[ -z "$(complete_words morvik-emu show d --pre)" ]'
check "choices complete" '[ "$(complete_words morvik-emu log w --level E)" = E ]'
check "choices complete after =" '[ "$(complete_words morvik-emu log w --level = W)" = W ]'
# Fault names, platform switches and scenarios complete from the programs' own tables: every
# name `list` shows, and nothing else.
"$prefix/bin/morvik-emu" init "$prefix/w" --blank >/dev/null
listed() { "$prefix/bin/morvik-emu" "$1" "$prefix/w" list | cut -d' ' -f1 | sed 's/=.*//' | sort; }
offered() {
  complete_words morvik-emu "$@" | tr ' ' '\n' | sed 's/=$//' | grep -vx -e clear -e list | sort
}
check "fault names complete" '[ "$(offered fault w "")" = "$(listed fault)" ]'
check "platform switches complete" '[ "$(offered platform w "")" = "$(listed platform)" ]'
check "a switch's values complete" \
  '[ "$(complete_words morvik-emu platform w cloud-registration = rep)" = replace ]'
check "names complete after clear" '[ "$(complete_words morvik-emu fault w clear store-s)" = store-silent ]'
check "the watch is a file name" '[ -z "$(complete_words morvik-emu fault clea)" ]'
check "scenarios complete" \
  '[ "$(complete_words morvik-emu explore --scenario backup-and)" = backup-and-restore-together ]'
service_words() {
  bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _morvik_service
           echo "${COMPREPLY[*]}"' _ "$prefix/share/bash-completion/completions/morvik-service" "$@"
}
check "operations complete" '[ "$(service_words morvik-service --operation re)" = restore ]'
check "placeholders do not" '[ -z "$(service_words morvik-service --operation U)" ]'

echo "$((checks - failures)) passed, $failures failed"
[ "$failures" -eq 0 ]
