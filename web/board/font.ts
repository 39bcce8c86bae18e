// The characters of the LCD, 5x8 dots each.

// For each character from ' ' to '~' its eight rows from the top, each row a digit to the base 32 whose highest
// bit is the dot at the left.
const ROWS = [
    '00000000 44444040 aaa00000 aavavaa0 4fke5u40 op248j30 cik8lid0 44800000', //  !"#$%&'
    '24888420 84222480 04lel400 044v4400 0000c480 000v0000 00000cc0 01248g00', // ()*+,-./
    'ehjlphe0 4c4444e0 eh1248v0 v2421he0 26aiv220 vgu11he0 68guhhe0 v1248880', // 01234567
    'ehhehhe0 ehhf12c0 0cc0cc00 0cc0c480 248g8420 00v0v000 84212480 eh124040', // 89:;<=>?
    'eh1dlle0 ehhhvhh0 uhhuhhu0 ehggghe0 sihhhis0 vgguggv0 vgguggg0 ehgnhhf0', // @ABCDEFG
    'hhhvhhh0 e44444e0 72222ic0 hikokih0 ggggggv0 hrllhhh0 hhpljhh0 ehhhhhe0', // HIJKLMNO
    'uhhuggg0 ehhhlid0 uhhukih0 fgge11u0 v4444440 hhhhhhe0 hhhhha40 hhhllla0', // PQRSTUVW
    'hha4ahh0 hhha4440 v1248gv0 e88888e0 0g842100 e22222e0 4ah00000 000000v0', // XYZ[\]^_
    '84200000 00e1fhf0 ggmphhu0 00egghe0 11djhhf0 00ehvge0 698s8880 00fhhf1e', // `abcdefg
    'ggmphhh0 40c444e0 206222ic ggikoki0 c44444e0 00qllhh0 00mphhh0 00ehhhe0', // hijklmno
    '00uhhugg 00fhhf11 00mpggg0 00fge1u0 88s88960 00hhhjd0 00hhha40 00hhlla0', // pqrstuvw
    '00ha4ah0 00hhhf1e 00v248v0 24484420 44444440 84424480 008l2000', // xyz{|}~
]
    .join(' ')
    .split(' ');

export const DOT_COLUMNS = 5;
export const DOT_ROWS = 8;

// Rows of dots, as the `d` of a path with one unit a dot.
function pathOf(rows: string): string {
    let path = '';
    [...rows].forEach((digit, y) => {
        for (let x = 0; x < DOT_COLUMNS; x += 1) {
            if ((parseInt(digit, 32) >> (DOT_COLUMNS - 1 - x)) & 1) {
                path += `M${x} ${y}h.86v.86h-.86z`;
            }
        }
    });
    return path;
}

export const ALL_DOTS = pathOf('vvvvvvvv');

// What is lit for a character; nothing for one that the LCD lacks.
export function dots(character: string): string {
    return pathOf(ROWS[character.charCodeAt(0) - 32] ?? '');
}
