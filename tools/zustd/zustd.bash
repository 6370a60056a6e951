# bash completion for zustd(1)
_zustd() {
  local cur prev words cword
  _init_completion || return
  local cmd=${words[1]} sub=${words[2]}
  case $prev in
    --type) COMPREPLY=($(compgen -W 'string int real bool' -- "$cur")); return ;;
    --dir) _filedir -d; return ;;
    --csv) _filedir; return ;;
    --default | --precision | --grep | --since) return ;;
  esac
  if ((cword == 1)); then
    COMPREPLY=($(compgen -W 'para expr log base64 time --help --version' -- "$cur"))
    return
  fi
  case $cmd in
    para)
      if ((cword == 2)); then
        COMPREPLY=($(compgen -W 'get set del sections keys --help' -- "$cur"))
      elif [[ $cur == -* ]]; then
        case $sub in
          get) COMPREPLY=($(compgen -W '--type --default --precision --help' -- "$cur")) ;;
          set) COMPREPLY=($(compgen -W '--type --help' -- "$cur")) ;;
          *) COMPREPLY=($(compgen -W '--help' -- "$cur")) ;;
        esac
      elif ((cword == 3)); then
        _filedir
      elif ((cword == 4)) && [[ -r ${words[3]} ]]; then
        local IFS=$'\n'
        COMPREPLY=($(compgen -W "$(zustd para sections "${words[3]}" 2>/dev/null)" -- "$cur"))
      fi
      ;;
    expr)
      COMPREPLY=($(compgen -W '--postfix --vars --csv --precision --help' -- "$cur"))
      ;;
    log)
      if ((cword == 2)); then
        COMPREPLY=($(compgen -W 'show add --help' -- "$cur"))
      elif [[ $sub == show && $cur == -* ]]; then
        COMPREPLY=($(compgen -W '--dir --follow --grep --since --json --help' -- "$cur"))
      fi
      ;;
    base64)
      if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W '-d --decode --help' -- "$cur"))
      else
        _filedir
      fi
      ;;
    time) COMPREPLY=($(compgen -W '--help' -- "$cur")) ;;
  esac
} && complete -F _zustd zustd
