# fish completion for deckwright: commands, options, the values of --layout,
# and as arguments the .key packages and folders and single .key files.

function __deckwright_paths
    # Folders (a package is one) and single .key files.
    __fish_complete_suffix .key | string match -r -- '^.*(?:\.key|/)$'
end

complete -c deckwright -f
complete -c deckwright -a '(__deckwright_paths)'
complete -c deckwright -n __fish_use_subcommand -a convert -d 'Convert packages without a window'
complete -c deckwright -n __fish_use_subcommand -a check -d 'Tell whether packages can be converted'
complete -c deckwright -n __fish_use_subcommand -s h -l help -d 'Show the help'
complete -c deckwright -n __fish_use_subcommand -s V -l version -d 'Show the version'
complete -c deckwright -n '__fish_seen_subcommand_from convert' -s o -l output -x -a '(__fish_complete_directories)' -d 'The folder that receives the converted files'
complete -c deckwright -n '__fish_seen_subcommand_from convert' -s l -l layout -x -a 'reference\t"As Deckwright has always written it" root\t"As Keynote \'09 writes it"' -d 'How the archive holds the package'
complete -c deckwright -n '__fish_seen_subcommand_from convert' -s j -l jobs -x -d 'Convert up to N packages at once'
complete -c deckwright -n '__fish_seen_subcommand_from convert' -l keep-folders -d 'Keep the folders packages were found in'
complete -c deckwright -n '__fish_seen_subcommand_from convert' -l skip-existing -d 'Skip packages converted before'
complete -c deckwright -n '__fish_seen_subcommand_from convert' -l json -d 'One JSON object per item'
complete -c deckwright -n '__fish_seen_subcommand_from convert' -s q -l quiet -d 'No progress line and no summary'
complete -c deckwright -n '__fish_seen_subcommand_from convert check' -s h -l help -d 'Show the help'
complete -c deckwright -n '__fish_seen_subcommand_from convert check' -s V -l version -d 'Show the version'
