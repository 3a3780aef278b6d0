# bash completion of extract-verify: commands, their options, and files.
_extract_verify() {
  local cur prev command
  cur=${COMP_WORDS[COMP_CWORD]}
  prev=${COMP_WORDS[COMP_CWORD-1]}
  command=${COMP_WORDS[1]}
  if [ "$COMP_CWORD" -eq 1 ]; then
    mapfile -t COMPREPLY < <(compgen -W "extract inspect pack resign attach demo --help --version" -- "$cur")
    return
  fi
  case $prev in
    --cert|--key|--out|--trust|--signature|--unsigned) mapfile -t COMPREPLY < <(compgen -f -- "$cur"); return ;;
    --dir) mapfile -t COMPREPLY < <(compgen -d -- "$cur"); return ;;
    --pass) mapfile -t COMPREPLY < <(compgen -W "file: env:" -- "$cur"); return ;;
    --only|--exclude|--set|--mtime) return ;;
  esac
  local options="--help --verbose"
  case $command in
    extract) options+=" --cert --only --exclude --quiet --json --strict --allow-incomplete --local-time" ;;
    inspect) options+=" --cert --json --local-time" ;;
    pack) options+=" --key --cert --pass --out --force --trust --no-signing-time --unsigned --mtime --set" ;;
    resign) options+=" --key --cert --pass --out --force --trust --no-signing-time" ;;
    attach) options+=" --signature --trust --out --force" ;;
    demo) options="--help --quiet --dir --local-time" ;;
  esac
  if [[ $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
  fi
}
complete -o filenames -F _extract_verify extract-verify
