# What the transfer scripts share. A script is judged by its exit code; the line
# that it prints on standard error never has the password or a text of the
# server in it.
#
# Names are octets here: whatever the locale, one character is one octet.

array set exit_code {
    done 0 timeout 1 bad_name 2 no_space 3 login 4 host_key 5 connection 6
    usage 7 other 8
}

log_user 0
exp_internal 0
set stty_init "-echo -onlcr"
set bin [file dirname [file normalize [info script]]]
set script [file tail $argv0]
set running ""
set part ""

# ---- The end ----------------------------------------------------------------

# Ends the client and what it has started: it leads a session of its own. The
# leader is not waited for before, so the number is still its own.
proc stop_client {} {
    global running spawn_id
    if {$running eq ""} return
    catch {exec /bin/sh -c "kill -KILL -$running 2>/dev/null"}
    set running ""
    catch {close -i $spawn_id}
    catch {wait -i $spawn_id}
}

proc finish {how {text ""}} {
    global exit_code part script
    stop_client
    if {$part ne ""} {catch {file delete -- $part}}
    if {$text ne ""} {catch {puts stderr "$script: $text"}}
    exit $exit_code($how)
}

# Runs a script's own part. What is wrong with a script itself is told without
# the values in it, one of which is the password.
proc run {body} {
    if {[catch $body]} {finish other "an error in the script"}
    finish done
}

trap {finish other "ended by a signal"} {SIGTERM SIGINT SIGHUP}

# ---- Arguments and settings -------------------------------------------------

# The arguments as the octets they are; Tcl has decoded its own.
proc arguments {} {
    global argc
    set file [open /proc/self/cmdline rb]
    set words [lrange [split [read $file] \0] 0 end-1]
    close $file
    return [lrange $words end-[expr {$argc - 1}] end]
}

proc read_settings {} {
    global setting bin
    if {[catch {exec $bin/xfsettings} lines]} {
        finish usage "the settings cannot be read"
    }
    foreach line [split $lines \n] {
        if {[regexp {^(\S+) (.*)$} $line all key value]} {
            set setting($key) $value
        }
    }
}

# The clients see nothing of the caller's environment: no proxies, no start-up
# files, no libraries to load first, and no shell to escape to.
proc clear_environment {} {
    global env
    foreach name [array names env] {unset env($name)}
    array set env {
        PATH /usr/sbin:/usr/bin:/sbin:/bin LC_ALL C SHELL /bin/false
        TERM dumb HOME /nonexistent
    }
}

# The arguments, `count` of them and perhaps the id of a VRF, which becomes the
# last; 1, our own network, if it is not there.
proc prepare {count usage} {
    global argc
    if {$argc != $count && $argc != $count + 1} {
        finish usage "usage: $usage \[VRF-ID\]"
    }
    encoding system iso8859-1
    set words [arguments]
    if {$argc == $count} {lappend words 1}
    if {![regexp {^[1-9][0-9]{0,9}$} [lindex $words end]]} {
        finish usage "the VRF is no id"
    }
    read_settings
    clear_environment
    return $words
}

# ---- Checks -----------------------------------------------------------------

proc has_controls {text} {
    return [regexp {[\x01-\x1f\x7f]} $text]
}

proc check_name {name} {
    if {$name eq "" || [has_controls $name]} {
        finish bad_name "a file name that cannot be sent"
    }
}

# A remote name that is not taken for an option or somebody's home directory.
proc remote_path {name} {
    check_name $name
    if {[string match {[-~]*} $name]} {return ./$name}
    return $name
}

proc check_login {user password} {
    if {$user eq "" || [has_controls $user]} {
        finish login "a user name that cannot be sent"
    }
    if {[has_controls $password]} {
        finish login "a password that cannot be sent"
    }
}

proc is_ipv4 {text} {
    if {![regexp {^\d{1,3}(\.\d{1,3}){3}$} $text]} {return 0}
    foreach number [split $text .] {
        if {[scan $number %d] > 255} {return 0}
    }
    return 1
}

# The number of 16-bit groups in colon-separated hexadecimal numbers, the last
# of which may be an IPv4 address; -1 if that is not what it is.
proc groups {text} {
    if {$text eq ""} {return 0}
    set count 0
    set words [split $text :]
    foreach word [lrange $words 0 end-1] {
        if {![regexp {^[0-9a-fA-F]{1,4}$} $word]} {return -1}
        incr count
    }
    if {[is_ipv4 [lindex $words end]]} {return [expr {$count + 2}]}
    if {![regexp {^[0-9a-fA-F]{1,4}$} [lindex $words end]]} {return -1}
    return [expr {$count + 1}]
}

proc is_ipv6 {text} {
    set gap [string first :: $text]
    if {$gap < 0} {return [expr {[groups $text] == 8}]}
    set front [groups [string range $text 0 $gap-1]]
    set back [groups [string range $text $gap+2 end]]
    if {[regexp {\.} [string range $text 0 $gap]]} {return 0}
    return [expr {$front >= 0 && $back >= 0 && $front + $back <= 7}]
}

proc check_server {server} {
    if {![is_ipv4 $server] && ![is_ipv6 $server]} {
        finish usage "the server is no IPv4 or IPv6 address"
    }
}

# user@address:name in its three parts, the address without brackets. The
# address begins behind the first @ that one follows. An IPv6 address is as long
# as it can be: of fe80::1:2:name, fe80::1:2.
proc split_target {target} {
    foreach at [lreverse [indices $target @]] {
        set rest [string range $target $at+1 end]
        foreach colon [indices $rest :] {
            set address [string range $rest 0 $colon-1]
            regexp {^\[(.*)\]$} $address all address
            if {[is_ipv4 $address] || [is_ipv6 $address]} {
                lappend found [list [string range $target 0 $at-1] $address \
                    [string range $rest $colon+1 end]]
                break
            }
        }
    }
    if {![info exists found]} {
        finish usage "the target is not user@address:name"
    }
    return [lindex $found 0]
}

# Where a character is in a text, the last place first.
proc indices {text character} {
    set places {}
    set place [string first $character $text]
    while {$place >= 0} {
        set places [linsert $places 0 $place]
        set place [string first $character $text $place+1]
    }
    return $places
}

# ---- Local files ------------------------------------------------------------

# A path that neither Tcl nor a client takes for anything else.
proc plain_path {path} {
    check_name $path
    if {[string index $path 0] eq "/"} {return $path}
    return ./$path
}

# An open file by a name that has no character with a meaning, and that is there
# for as long as the script.
proc path_of {channel} {
    return /proc/[pid]/fd/[string range $channel 4 end]
}

proc open_source {path} {
    set path [plain_path $path]
    if {![file isfile $path] || [catch {open $path rb} channel]} {
        finish bad_name "the local file cannot be read"
    }
    return [path_of $channel]
}

# A download gets its name when it is whole. Gives the name that it has until
# then, in the same directory.
proc open_destination {path} {
    global part
    set path [plain_path $path]
    set directory [string range $path 0 [string last / $path]]
    if {[string index $path end] eq "/" || [file isdirectory $path] ||
        ![file writable $directory]} {
        finish bad_name "the local file cannot be written"
    }
    set part $directory.transfer-[pid].part
    file delete -- $part
    return $part
}

proc keep_download {path} {
    global part
    if {$part eq ""} return
    if {![file isfile $part] ||
        [catch {file rename -force -- $part [plain_path $path]}]} {
        finish other "the file could not be kept"
    }
    set part ""
}

# A file that has no name any more, for a client to read; gives its path.
proc hidden_file {text} {
    set channel [file tempfile name]
    file delete -- $name
    fconfigure $channel -encoding binary -translation binary
    puts -nonewline $channel $text
    flush $channel
    return [path_of $channel]
}

# ---- The client -------------------------------------------------------------

proc shell_quoted {word} {
    return '[string map {' '\\''} $word]'
}

# Starts a client on a terminal of its own, in the VRF. The command is given in
# a file because spawn alters octets above 127.
proc start_client {vrf words {redirection ""} {directory ./}} {
    global spawn_id running bin stty_init
    if {$vrf != 1} {set words [linsert $words 0 $bin/xfvrf $vrf]}
    set command "umask 077\ncd [shell_quoted $directory] || exit\nexec"
    foreach word $words {append command " " [shell_quoted $word]}
    set running [spawn -noecho /bin/sh [hidden_file "$command $redirection\n"]]
    fconfigure $spawn_id -encoding binary -translation binary
    match_max 100000
}

# Waits for the end of the client; gives its exit code.
proc client_status {} {
    global running spawn_id
    set result [wait -i $spawn_id]
    set running ""
    if {[llength $result] > 4 || [lindex $result 2] != 0} {return 255}
    return [lindex $result 3]
}
