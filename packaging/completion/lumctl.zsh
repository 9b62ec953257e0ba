#compdef lumctl
# zsh completion of lumctl: lumctl itself says what may stand where.

_lumctl() {
  local -a offered
  offered=(${(f)"$(${~words[1]} __complete -- "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)"})
  if (( ! $#offered )); then
    _files
    return
  fi
  compadd -S '' -- ${(M)offered:#*=}
  compadd -- ${offered:#*=}
}

if [[ $funcstack[1] == _lumctl ]]; then
  _lumctl "$@"
else
  compdef _lumctl lumctl
fi
