# Filter of lighttpd's error log (server.errorlog in wsgate.conf): copies every line except
# the repeats of one note. While the connection bound (server.max-connections) is reached,
# lighttpd notes each time it stops accepting and each time it accepts again, up to two
# lines per waiting client; of these only the first pair of each minute is kept, which says
# that callers waited in that minute.
/\[note\] sockets disabled, connection limit reached$/ {
  minute = substr($0, 1, 16)
  if (minute == noted) { dropping = 1; next }
  noted = minute
}
/\[note\] sockets enabled again$/ && dropping { dropping = 0; next }
{ dropping = 0; print }
