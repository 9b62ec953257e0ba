# bash completion of lumctl: lumctl itself says what may stand where.

# The words up to the cursor as lumctl would get them. Readline has also parted them at ':' and '=',
# which are part of lumctl's words.
_lumctl_words() {
  local line=${COMP_LINE:0:COMP_POINT} word rest i
  words=()
  for ((i = 0; i <= COMP_CWORD; i++)); do
    rest=${line#"${line%%[![:space:]]*}"}
    word=${COMP_WORDS[i]}
    ((i < COMP_CWORD)) || word=$rest
    if ((i > 0)) && [[ $rest == "$line" ]]; then
      words[-1]+=$word
    else
      words+=("$word")
    fi
    line=${rest#"$word"}
  done
}

_lumctl() {
  local -a words
  local current parted i
  _lumctl_words
  current=${words[-1]}
  words=("${words[@]//[\\\'\"]/}")
  mapfile -t COMPREPLY < <("${1/#\~/$HOME}" __complete -- "${words[@]:1}" 2>/dev/null)

  # Readline replaces only what stands behind the last of its own word breaks.
  parted=${words[-1]%"${words[-1]##*[:=]}"}
  for i in "${!COMPREPLY[@]}"; do
    COMPREPLY[i]=${COMPREPLY[i]#"$parted"}
    [[ $current == [\'\"]* ]] || printf -v 'COMPREPLY[i]' %q "${COMPREPLY[i]}"
  done
  if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then
    compopt -o nospace 2>/dev/null
  fi
}

complete -o default -F _lumctl lumctl
