# Completes a command line of tovik-flash in bash; the program itself tells what may come next.
_tovik_flash() {
  local line=${COMP_LINE:0:COMP_POINT} words word before candidate
  # shellcheck disable=SC2162  # a backslash keeps a space in its word, as it does on the command line
  read -a words <<< "$line"
  [[ $line == *' ' && $line != *'\ ' ]] && words+=('')
  word=${words[-1]}
  # bash takes "=" and ":" for ends of words, so that only what stands behind them is to be given.
  before=${word%"${word##*[=:]}"}
  COMPREPLY=()
  while IFS= read -r candidate; do
    printf -v candidate %q "${candidate#"$before"}"
    COMPREPLY+=("$candidate")
  done < <("$1" --complete "${words[@]:1}" 2> /dev/null | cut -f 1)
  if [[ ${COMPREPLY[0]-} == *= ]]; then compopt -o nospace; fi
}
complete -o default -F _tovik_flash tovik-flash
