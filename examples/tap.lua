-- Taps the middle of the screen twice, then swipes up, and notes what it did in the log.
local width, height = getScreenSize()
local x, y = math.floor(width / 2), math.floor(height / 2)

for tap = 1, 2 do
    touchDown(1, x, y)
    usleep(50000)          -- the finger rests 50 ms
    touchUp(1, x, y)
    usleep(300000)
end

-- A swipe: down, three moves, up.
touchDown(2, x, y + 100)
for step = 1, 3 do
    usleep(16000)
    touchMove(2, x, y + 100 - step * 50)
end
usleep(16000)
touchUp(2, x, y - 50)

log(("tapped %d,%d twice and swiped up on a %dx%d screen, centre colour %06X")
    :format(x, y, width, height, bit32.band(getColor(x, y), 0xFFFFFF)))
