# fish completion for mqctl(1).

set -l commands list get post call send listen os-agent ping health repair decode encode report

# Participants that exist now.
function __mqctl_names
    mqctl list --names 2>/dev/null
end

function __mqctl_command
    complete -c mqctl -n "__fish_seen_subcommand_from $argv[1]" $argv[2..]
end

complete -c mqctl -f

complete -c mqctl -s h -l help -d 'Show help'
complete -c mqctl -n "not __fish_seen_subcommand_from $commands" -l version -d 'Show the version'
complete -c mqctl -x -l to -a '(__mqctl_names)' -d 'Controller to ask'
complete -c mqctl -x -l from -d 'Own name'
complete -c mqctl -x -s w -l wait -d 'How long to wait: 500ms, 2s, 3m'
complete -c mqctl -l json -a 'short pretty' -d 'JSON in one line, or indented'
complete -c mqctl -s j -d 'JSON, pretty on a terminal'
complete -c mqctl -l color -a 'auto always never' -d Colours
complete -c mqctl -s q -l quiet -d 'No countdown and notes'
complete -c mqctl -s v -l verbose -d 'Show requests, replies and log lines'
complete -c mqctl -l no-legend -d 'Tables without headings and footers'
complete -c mqctl -l force -d 'Do what is refused for the sake of others'

set -l first "not __fish_seen_subcommand_from $commands"
complete -c mqctl -n $first -a list -d 'The participants of the message queue'
complete -c mqctl -n $first -a get -d 'Fetch a URL through the agent'
complete -c mqctl -n $first -a post -d 'Post a body through the agent'
complete -c mqctl -n $first -a call -d 'Send one postcard and wait for its reply'
complete -c mqctl -n $first -a send -d 'Send one postcard'
complete -c mqctl -n $first -a listen -d 'Be a participant, and print what arrives'
complete -c mqctl -n $first -a os-agent -d 'Play the OS agent'
complete -c mqctl -n $first -a ping -d "Does a controller's event loop answer?"
complete -c mqctl -n $first -a health -d 'Do the controllers serve?'
complete -c mqctl -n $first -a repair -d 'Free a controller that waits for a result in vain'
complete -c mqctl -n $first -a decode -d 'Postcard bytes to text or JSON'
complete -c mqctl -n $first -a encode -d 'JSON to postcard bytes'
complete -c mqctl -n $first -a report -d "What became of each request, from the agent's log"

__mqctl_command list -l watch -d 'Go on showing what changes'
__mqctl_command list -l names -d 'The names alone'
for transfer in get post
    __mqctl_command $transfer -x -s t -l timeout -d 'Seconds that the agent is granted'
    __mqctl_command $transfer -r -F -s o -l output -d 'Write the body to a file'
    __mqctl_command $transfer -l fail -d 'HTTP status of 400 or more is exit status 22'
    __mqctl_command $transfer -l fresh -d 'Use no connection of an earlier request'
end
__mqctl_command post -r -s d -l data -d 'The body: DATA or @FILE'
__mqctl_command post -x -l type -d 'Content type of the body'
__mqctl_command post -x -l protocol-version -d 'Protocol version for the server'
for sender in call send
    __mqctl_command $sender -r -F -l json-in -d 'Fields as decode --json prints them'
end
__mqctl_command send -r -F -l raw -d 'Send the bytes of a file'
__mqctl_command listen -x -l alias -d 'One more name'
__mqctl_command listen -x -s n -l count -d 'End after that many messages'
__mqctl_command listen -x -l match -d 'Only messages with that field, KEY=VALUE'
__mqctl_command listen -x -l save -a '(__fish_complete_directories)' -d 'Write each message to a file'
__mqctl_command listen -l announcements -d 'Also what is said about other participants'
__mqctl_command os-agent -x -l location -a 'on off' -d 'The location setting'
__mqctl_command os-agent -x -l emergency -a 'on off' -d 'An emergency call'
__mqctl_command os-agent -s i -l interactive -d 'Read changes from standard input'
__mqctl_command ping -x -s c -l count -d 'That many times'
__mqctl_command ping -x -s i -l interval -d 'From one to the next'
__mqctl_command health -x -l longest -d 'Longest time-out in use, in seconds'
__mqctl_command health -x -l probe-url -d 'What the worker is asked for'
__mqctl_command repair -l yes -d 'Do it'
for codec in decode encode
    __mqctl_command $codec -F -l hex -d 'The bytes are hexadecimal digits'
    __mqctl_command $codec -F
end
__mqctl_command encode -r -F -s o -l output -d 'Write to a file'
__mqctl_command report -F
__mqctl_command report -r -F -l html -d 'Write a page with waterfalls'
__mqctl_command report -r -F -l har -d 'Write HAR 1.2'
__mqctl_command report -l summary -d 'Counts and percentiles'
__mqctl_command report -x -l client -d "Only this client's requests"
__mqctl_command report -x -l since -d 'Only from this time on'
__mqctl_command report -x -l slow -d 'Only what took as many seconds'
__mqctl_command report -l urls -d 'A column with the URLs'
__mqctl_command report -l no-query -d 'URLs without user, query and fragment'
for to in call send listen ping health repair
    __mqctl_command $to -a '(__mqctl_names)'
end
functions -e __mqctl_command
