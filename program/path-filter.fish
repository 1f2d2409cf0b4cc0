# fish completion for path-filter

function __path_filter_on -d 'Whether the command is one of these; "" is none yet'
    set -l words (commandline -opc)
    contains -- "$words[2]" $argv
end

function __path_filter_languages -d 'The languages, each with its tier'
    path-filter languages 2>/dev/null | string match '*'\t'*'
end

function __path_filter_kinds
    path-filter rules 2>/dev/null | string match -r '^[a-z].*'
end

function __path_filter_directories
    __fish_complete_directories (commandline -ct | string replace -r '^--root=' '')
end

complete -c path-filter -f
complete -c path-filter -s h -l help -d 'Print the help'
complete -c path-filter -n '__path_filter_on ""' -s V -l version -d 'Print the version'

set -l command complete -c path-filter -n '__path_filter_on "" help' -a
$command list -d 'Print the indexable files at or below paths'
$command check -d 'Print the decision on each path'
$command summary -d 'Count what is in and out, by language and kind'
$command report -d 'Write a page that shows what is in and out'
$command languages -d 'Print the language registry, or some languages of it'
$command rules -d 'Print the fixed rules'
$command help -d 'Print the help on a command'

set -l all complete -c path-filter -n '__path_filter_on list check summary languages rules'
$all -l json -d 'Print JSON'
$all -l color -x -a 'auto always never' -d 'Use colours'

set -l files complete -c path-filter -n '__path_filter_on list check summary report'
$files -l root -x -a '(__path_filter_directories)' -d 'The root of the repository'
$files -l config -r -F -d 'A TOML file that has the limits'
$files -l max-file-size-mb -x -d 'Leave out larger files'
$files -l languages -x -a '(__fish_append , (__path_filter_languages))' -d 'Index only these'

set -l decisions complete -c path-filter -n '__path_filter_on list check'
$decisions -s 0 -s z -l null -d 'End paths, or the fields of answers, with NUL'
$decisions -s v -l verbose -d 'Name what decided'
$decisions -s j -l threads -x -d 'Use so many threads'
$decisions -F

set -l list complete -c path-filter -n '__path_filter_on list'
$list -l excluded -d 'Print what is left out instead'
$list -l kind -x -a '(__fish_append , (__path_filter_kinds))' -d 'Print what is left out so'
$list -l production -d 'Print only what is not test code'
$list -l tests -d 'Print only test code'
$list -l sort -x -a path -d 'Print in an order'

set -l check complete -c path-filter -n '__path_filter_on check'
$check -l stdin -d 'Read paths from standard input too'
$check -s q -l quiet -d 'Print no decision'

complete -c path-filter -n '__path_filter_on report' -s o -l output -r -F -d 'Write to a file'
complete -c path-filter -n '__path_filter_on summary report' -a '(__path_filter_directories)'
complete -c path-filter -n '__path_filter_on languages' -a '(__path_filter_languages)'
