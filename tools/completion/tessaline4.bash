# Completion of tessaline4 for bash. Options are asked of the tool itself, so that they are always those that it has.
_tessaline4() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} tool=${COMP_WORDS[0]} subcommand= word
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [[ $word != -* ]]; then
      subcommand=$word
      break
    fi
  done
  COMPREPLY=()
  if [[ $current == -* ]]; then
    local options
    options=$("$tool" $subcommand --help 2>/dev/null | sed -nE 's/^ *(-[a-zA-Z],)?(--[a-z0-9-]+).*/\2/p')
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  elif [[ -z $subcommand ]]; then
    local subcommands
    subcommands=$("$tool" --help 2>/dev/null | sed -n '/^Subcommands:/,$ s/^  \([a-z]*\) .*/\1/p')
    mapfile -t COMPREPLY < <(compgen -W "$subcommands" -- "$current")
  elif [[ $previous == --* && -z $current ]]; then
    # Values that an option lists between braces.
    local values
    values=$("$tool" "$subcommand" --help 2>/dev/null | sed -nE "s/.*$previous [A-Z]*:\{([^}]*)\}.*/\1/p" | tr , ' ')
    [[ -z $values ]] || mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
  fi
}
complete -o default -o bashdefault -F _tessaline4 tessaline4
