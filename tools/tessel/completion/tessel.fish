# Completion of tessel for fish. What fits is asked of the tool itself, `tessel complete`.

function __tessel_complete
    set -l words (commandline --tokenize --cut-at-cursor --current-process)
    set -l typed (commandline --current-token --cut-at-cursor)
    # An open quotation is no text yet.
    set -l plain (string unescape -- "$typed"; or string trim --left --chars \'\" -- "$typed")
    set --append words "$plain"
    set words (string replace --regex '^~/' "$HOME/" -- $words)
    set -l tool $words[1]
    set --erase words[1]
    for line in ($tool complete -- $words 2>/dev/null)
        if not string match --quiet \t'*' -- $line
            echo $line
            continue
        end
        set -l ending (string sub --start 2 -- $line)
        if test $ending = /
            __fish_complete_directories $words[-1]
        else
            __tessel_files $ending $words[-1]
        end
    end
end

# The files whose names end so, and the folders.
function __tessel_files --argument-names ending typed
    set -l prefix (string match --regex '^--[a-z-]+=' -- $typed)
    set -l begin (string replace --regex '^--[a-z-]+=' '' -- $typed)
    for file in $begin*
        if test -d $file
            echo "$prefix$file/"
        else if string match --quiet "*$ending" -- $file
            echo "$prefix$file"
        end
    end
end

complete --command tessel --no-files --arguments '(__tessel_complete)'
