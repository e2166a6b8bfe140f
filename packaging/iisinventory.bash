# Completion of iisinventory's command lines in bash. Commands, options and what the options take come from
# the program itself, names of servers and tables from the database that the line names.

# Prints the first column of CSV, without its header.
_iisinventory_names() {
  sed -e 1d -e '/^"/!s/,.*//' -e '/^"/{s/^"\(\(""\|[^"]\)*\)".*/\1/;s/""/"/g}'
}

_iisinventory_rules() {
  "$1" rules --rule '*' --format csv 2>/dev/null | _iisinventory_names
}

_iisinventory() {
  local program=$1 word=$2 before=$3 severities=$'info\nlow\nmedium\nhigh\ncritical'
  local command='' database='' at choices='' help
  for ((at = 1; at < COMP_CWORD; ++at)); do
    case ${COMP_WORDS[at - 1]} in
      -d | --database) database=${COMP_WORDS[at]} ;;
      --color) ;;
      *) [[ -n $command || ${COMP_WORDS[at]} == -* ]] || command=${COMP_WORDS[at]} ;;
    esac
  done
  # As the line has it: with quotes and a tilde.
  database=${database//[\'\"]/}
  word=${word//[\\\'\"]/}
  database=${database/#\~\//$HOME/}

  COMPREPLY=()
  case $command$before in
    schema--format | schema-f) choices=$'table\njson\nmarkdown' ;;
    findings--format | findings-f) choices=$'table\ncsv\njson\njsonl\nsarif' ;;
    collect--format | collect-f | check--format | check-f) choices=$'table\njson' ;;
    show--format | show-f) choices=$'table\ncsv\njson\nxlsx' ;;
    *--format | *-f) choices=$'table\ncsv\njson' ;;
    *--color) choices=$'auto\nalways\nnever' ;;
    *--min-severity) choices=$severities ;;
    collect--fail-on) choices=$'problems\nunpublished' ;;
    *--fail-on) choices=any$'\n'$severities$'\n'$(_iisinventory_rules "$program") ;;
    *--rule) choices=$(_iisinventory_rules "$program") ;;
    *--category) choices=$'security\nreliability\nmigration\nhousekeeping' ;;
    *--profile) choices=$'default\nstig-iis6\nmigration' ;;
    collect--only | collect-o)
      # The error message about an unknown tab lists the tabs.
      choices=$("$program" collect --database x --only '?' x=x 2>&1 |
        sed -n 's/.*tabs: \(.*\) (see .*/\1/p' | tr , '\n' | sed 's/^ *//')
      ;;
    *--server | *--against)
      [[ -z $database ]] || choices=$("$program" servers -d "$database" --format csv 2>/dev/null | _iisinventory_names)
      ;;
    *--database | *-d | *--output | *-o | *--table | *--log-dir | *--from | *--to) ;;
    *)
      if [[ $word == -* ]]; then
        help=$("$program" ${command:+"$command"} --help 2>/dev/null)
        choices=$(sed -n 's/^  \(-[a-z],\)\?\(--[a-z-]*\).*/\2/p' <<<"$help")
      elif [[ -z $command ]]; then
        choices=$("$program" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
      elif [[ $command == show && -n $database ]]; then
        choices=$("$program" show -d "$database" --format csv 2>/dev/null | _iisinventory_names)
      elif [[ $command == schema ]]; then
        choices=$("$program" schema --format json | sed -n 's/.*"Table":"\([^"]*\)".*/\1/p' | uniq)
      elif [[ $command == @(remove|rename) && -n $database ]]; then
        choices=$("$program" servers -d "$database" --format csv 2>/dev/null | _iisinventory_names)
      fi
      ;;
  esac

  local choice
  while IFS= read -r choice; do
    if [[ -n $choice && ${choice,,} == "${word,,}"* ]]; then COMPREPLY+=("$(printf %q "$choice")"); fi
  done <<<"$choices"
}

complete -o default -F _iisinventory iisinventory
