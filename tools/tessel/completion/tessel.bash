# shellcheck shell=bash
# Completion of tessel for bash. What fits is asked of the tool itself, `tessel complete`.

# Sets REPLY to the word as the shell would pass it on: without quotes, the home folder in place of
# ~. Variables and commands in it are left alone.
_tessel_unquoted()
{
    local typed=$1 quote='' character
    REPLY=
    if [[ ${typed%%/*} == "~" ]]; then
        typed=$HOME${typed:1}
    fi
    while [[ -n $typed ]]; do
        character=${typed:0:1}
        typed=${typed:1}
        if [[ $character == "$quote" ]]; then
            quote=
        elif [[ -z $quote && ($character == \' || $character == \") ]]; then
            quote=$character
        elif [[ $character == \\ && $quote != \' ]]; then
            REPLY+=${typed:0:1}
            typed=${typed:1}
        else
            REPLY+=$character
        fi
    done
}

# Sets words to what stands behind `tessel` up to the cursor, and broken_off to that part of the
# last of them which readline leaves alone: it takes --option=VALUE and a:b as three words.
_tessel_words()
{
    local index word is_joined=false
    words=()
    broken_off=
    for ((index = 1; index <= COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        if [[ ${#words[@]} -gt 0 && ($is_joined == true || $word == [=:]) ]]; then
            broken_off=${words[-1]}
            words[-1]+=$word
        else
            broken_off=
            words+=("$word")
        fi
        is_joined=false
        if [[ $word == [=:] ]]; then
            is_joined=true
            broken_off=${words[-1]}
        fi
    done
}

# Adds the files whose names end so, and the folders, to COMPREPLY.
_tessel_files()
{
    local ending=$1 typed=$2 file
    compopt -o filenames 2>/dev/null
    while IFS= read -r file; do
        if [[ -d $file || ($ending != / && $file == *"$ending") ]]; then
            COMPREPLY+=("$file")
        fi
    done < <(compgen -f -- "$typed")
}

# Sets REPLY to the word as it has to stand in the line.
_tessel_quoted()
{
    REPLY=$1
    if [[ $1 == *[[:blank:]\'\"\`\$\&\;\|\<\>\(\)\[\]\{\}\*\?\!\\]* ]]; then
        printf -v REPLY %q "$1"
    fi
}

_tessel()
{
    local words broken_off index line word typed tool opening_quote=
    _tessel_unquoted "${COMP_WORDS[0]}"
    tool=$REPLY
    _tessel_words
    if [[ ${words[-1]-} == [\'\"]* ]]; then
        opening_quote=${words[-1]:0:1}
    fi
    for index in "${!words[@]}"; do
        _tessel_unquoted "${words[index]}"
        words[index]=$REPLY
    done
    typed=${words[-1]-}
    COMPREPLY=()
    while IFS= read -r line; do
        word=${line%%$'\t'*}
        # A node or an array goes on.
        if [[ $word == *[/#] ]]; then
            compopt -o nospace 2>/dev/null
        fi
        word=${word#"$broken_off"}
        if [[ $line == $'\t'* ]]; then
            _tessel_files "${line#$'\t'}" "${typed#"$broken_off"}"
        elif [[ -n $opening_quote ]]; then
            COMPREPLY+=("$word") # which readline closes
        else
            _tessel_quoted "$word"
            COMPREPLY+=("$REPLY")
        fi
    done < <("$tool" complete -- "${words[@]}" 2>/dev/null)
}

complete -F _tessel tessel
