-- The demo: find the Demo app's icon on the home screen by its picture, open the app by tapping
-- the icon, find the green button by its colour, tap it, and keep a screenshot of the result.
local DEMO = "com.tactora.demo"
local BUTTON = 0x1FA85A           -- the button's green; nothing else on the screen has it
local ICON = rootDir() .. "demo-icon.png"

local function tap(x, y)
    touchDown(1, x, y)
    usleep(120000)                -- the finger rests a little
    touchUp(1, x, y)
    usleep(600000)                -- and the app takes its time to answer
end

appKill(DEMO)                     -- start from the home screen, whatever ran before
usleep(500000)

local icons = findImage({ imagePath = ICON, count = 1, fuzzy = 0.95 })
if #icons == 0 then error("the Demo icon is not on the screen") end
local x, y = icons[1][1], icons[1][2]   -- the top-left corner of the picture, in points
log(("found the Demo icon at %d,%d"):format(x, y))
tap(x + 14, y + 14)                      -- the middle of the 28-point picture

if not appIsActive(DEMO) then error("tapping the icon did not open the Demo app") end
log("the Demo app is open")

local hits = findColor(BUTTON, 1)
if #hits == 0 then error("the green button is not on the screen") end
local bx, by = hits[1][1], hits[1][2]    -- its top-left corner
log(("found the green button at %d,%d"):format(bx, by))
tap(bx + 100, by + 28)

screenshot(rootDir() .. "demo-result.png")
if #findColor(BUTTON, 1) > 0 then error("the button is still there after the tap") end
log("pressed the green button; the result is in demo-result.png")
