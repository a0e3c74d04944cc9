# What zsh offers to complete command lines with: scripts/check-completion runs this. Takes the folder
# of completion functions; on standard input are the lines, begun to be typed. For each it prints the
# line, what is offered, and how that is shown where it comes with a description, with tabs between.
zmodload zsh/zpty
offered=$(mktemp) shown=$(mktemp)
trap 'rm -f $offered $shown' EXIT

# Completion takes a terminal. Whatever is offered goes through compadd, which writes it down unless
# it is only asked to compute.
zpty child zsh -f -i
zpty -w child "
  fpath=(${(q)1} \$fpath); autoload -Uz compinit; compinit -D -u
  compadd() {
    local name=\${@[\${@[(i)-(l|)d]}+1]}
    local -a matches
    if [[ \${@[1,(i)(-|--)]} != *\ -[OAD]\ * ]]; then
      builtin compadd -O matches \"\$@\"
      print -rl -- \$matches >>${(q)offered}
      if [[ -n \$name ]]; then print -rl -- \${(P)name} >>${(q)shown}; fi
    fi
    builtin compadd \"\$@\"
  }
  record() { _main_complete; print -r -- done >>${(q)offered}; compstate[insert]=; compstate[list]= }
  zle -C record complete-word record
  bindkey '^I' record"
while IFS= read -r line; do
  : >$offered >$shown
  zpty -w -n child $'\C-u'$line$'\t'
  for ((i = 0; i < 400; i++)); do
    if [[ $(tail -n 1 $offered) == done ]]; then break; fi
    sleep 0.05
  done
  if ((i == 400)); then print -u 2 -r -- "no answer: $line"; exit 1; fi
  print -r -- $line$'\t'${(ouf)"$(sed '$d' $offered)"}$'\t'${(f)"$(<$shown)"}
done
zpty -d child
