-- Presses Return in the application whose process is named on the command line.
on run argv
	set processNumber to (item 1 of argv) as integer
	tell application "System Events"
		set theApplication to first application process whose unix id is processNumber
		set frontmost of theApplication to true
		repeat 50 times
			if frontmost of theApplication then exit repeat
			delay 0.1
		end repeat
		if not (frontmost of theApplication) then error "The application does not come to the front."
		key code 36
	end tell
end run
