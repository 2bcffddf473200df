# Completes a command line of tovik-flash in fish; the program itself tells what may come next.
function __tovik_flash_candidates
    set -l words (commandline -opc) (commandline -ct)
    $words[1] --complete $words[2..-1] 2>/dev/null
end
complete -c tovik-flash -a '(__tovik_flash_candidates)'
