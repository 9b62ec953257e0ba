# fish completion of lumctl: lumctl itself says what may stand where.

function __lumctl_offer
    set -l words (commandline --tokenize --cut-at-cursor --current-process)
    # fish parts the words before the cursor itself, but leaves the one at it as it is typed.
    set -l last (string replace --all --regex '[\\\\\'"]' '' -- (commandline --current-token --cut-at-cursor))
    set -g __lumctl_offered ($words[1] __complete -- $words[2..-1] "$last" 2>/dev/null)
    test (count $__lumctl_offered) -gt 0
end

complete --command lumctl --no-files --condition __lumctl_offer --arguments '$__lumctl_offered'
