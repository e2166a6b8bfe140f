#!/usr/bin/env bash
# What is installed works where it is moved to, and its page and completions know what the program knows:
# install.sh BUILD-FOLDER SAMPLES
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/first" --strip >/dev/null
mv "$work/first" "$work/moved place"
root="$work/moved place" program="$work/moved place/bin/iisinventory"

fail() {
  echo "$1" >&2
  exit 1
}

cd "$work"
"$program" collect "$2/WEB01/MetaBase.xml" "Ä \"b\", c=$2/WEB01/MetaBase.xml" --database try.db --quiet
"$program" report -d try.db -o try.html

page=$(gzip -dc "$root/share/man/man1/iisinventory.1.gz")
for command in $("$program" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
  grep -q "^.SH ${command^^}$" <<<"$page" || fail "$command isn't in the manual"
  while IFS= read -r words; do
    grep -qF -- "${words//-/\\-}" <<<"$page" || fail "$command: the manual doesn't say '$words'"
  done < <("$program" "$command" --help | sed -n 's/^  -.\{25,\}   *\([^ ].*\)/\1/p')
done

source "$root/share/bash-completion/completions/iisinventory"
expect() {
  local expected=$1
  shift
  COMP_WORDS=("$program" "$@") COMP_CWORD=$#
  _iisinventory "$program" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}" || true
  [ "${COMPREPLY[*]}" = "$expected" ] || fail "$*: '${COMPREPLY[*]}' and not '$expected'"
}
expect 'report rename remove redact' --color never re
expect '--list --log-dir' collect --l
expect 'Message Memory\ Recycling' collect --only m
expect 'Message Memory\ Recycling' collect -o M
expect "WEB01 $(printf %q 'Ä "b", c')" report -d try.db --server ''
expect WEB01 remove -d try.db w
expect 'tblHomeDirectorySetting tblHealth' show -d try.db tblH
expect 'pool-serves-nothing' findings --fail-on pool-s
expect 'medium' findings --fail-on me
expect 'ftp-home-on-system-drive' rules --rule ftp-h
expect 'sarif' findings --format s
