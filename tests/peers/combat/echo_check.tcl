# A Combat (Tcl ORB) client of Demo::Echo, by dynamic invocation: calls
# every operation of the reference given as the argument, sends a two-way
# operation as oneway and a oneway one as two-way, and prints one line per
# result. Any failure ends it with a Tcl error and a non-zero status.
package require combat

set obj [corba::string_to_object [lindex $argv 0]]
set say {string say {{in string}}}
puts "say: [corba::dii $obj $say hello]"
puts "pid: [corba::dii $obj {long pid {}}]"
puts "is_a: [corba::dii $obj {boolean _is_a {{in string}}} IDL:Demo/Echo:1.0]"
# note is oneway in the IDL; asked for a reply, it gets an empty one.
corba::dii -timeout 5000 $obj {void note {{in string}}} two-way
puts "note answered"
# say sent without a reply expected; a stray reply would be read as the
# answer to the next call.
corba::dii $obj {string say {{in string}} OP_ONEWAY} unanswered
puts "after: [corba::dii $obj $say after]"
