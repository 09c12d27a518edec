# What SFTP and SCP share: OpenSSH's clients, with a password and known hosts.

# The host keys of our own network, or those of a VRF: the same address is
# another server there.
proc known_hosts {vrf} {
    global setting
    if {$vrf == 1} {return $setting(known_hosts)}
    return $setting(known_hosts).$vrf
}

proc config_quoted {text} {
    return "\"[string map {\\ \\\\ \" \\\"} $text]\""
}

# A configuration file for ssh, the only one that it reads.
proc ssh_config {user vrf} {
    global setting
    set hosts [string map {% %%} [known_hosts $vrf]]
    return [hidden_file "
        User [config_quoted $user]
        Port $setting(ssh_port)
        ConnectTimeout $setting(login_seconds)
        ServerAliveInterval 15
        ServerAliveCountMax 2
        StrictHostKeyChecking yes
        UserKnownHostsFile [config_quoted $hosts]
        GlobalKnownHostsFile /dev/null
        UpdateHostKeys no
        CheckHostIP no
        PreferredAuthentications password,keyboard-interactive
        PubkeyAuthentication no
        HostbasedAuthentication no
        GSSAPIAuthentication no
        NumberOfPasswordPrompts 1
        IdentityAgent none
        ClearAllForwardings yes
        ForwardAgent no
        ForwardX11 no
        ControlMaster no
        ControlPath none
        EscapeChar none
        LogLevel VERBOSE
    "]
}

proc ssh_host {server} {
    if {[string first : $server] >= 0} {return "\[$server\]"}
    return $server
}

# What a client said about a failure, as an outcome and a text. SFTP has no code
# for a full disk: a server says "Failure" to a write.
set ssh_failures {
    {Host key verification failed|IDENTIFICATION HAS CHANGED|host key is known}
        host_key "the server's host key is not known, or another one"
    {Permission denied \(|Too many authentication failures}
        login "the server refused the login"
    {timed out|Timeout, server|not responding}
        timeout "the server did not answer in time"
    {No space left|quota exceeded|File too large|write remote [^\n]*: Failure}
        no_space "no space for the file"
    {Connection refused|Connection closed|Connection reset|onnection lost|Broken pipe|closed by remote|unreachable|No route|Couldn't read packet}
        connection "the connection failed or was lost"
    {No such file|not found|Permission denied|egular file|s a directory|Failure|No such path|Bad message|Invalid}
        bad_name "the server has no such file, or does not take it"
}

proc ssh_failed {text} {
    global ssh_failures
    foreach {pattern how reason} $ssh_failures {
        if {[regexp $pattern $text]} {finish $how $reason}
    }
    finish other "the transfer failed"
}

# Runs an SSH client to its end; comes back after a success only.
proc run_ssh_client {vrf words password} {
    global setting spawn_id timeout
    start_client $vrf $words >/dev/null
    set timeout $setting(login_seconds)
    set asked 0
    set said ""
    expect {
        -re {(?i)(password|passcode|passphrase)[^\n]*: ?$} {
            append said $expect_out(buffer)
            if {$asked} {finish login "the server refused the login"}
            set asked 1
            send -- "$password\n"
            exp_continue
        }
        -re {(^|\n)Authenticated to [^\n]*\n} {
            append said $expect_out(buffer)
            set timeout $setting(transfer_seconds)
            exp_continue
        }
        timeout {finish timeout "the server did not answer in time"}
        eof {append said $expect_out(buffer)}
    }
    if {[client_status] != 0} {ssh_failed $said}
}
