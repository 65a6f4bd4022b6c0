/**
 * Finds the code page of a text in 8 bits. A log of the installer says nowhere in which one it is: the one whose characters
 * are the most usual is taken. A wrong one changes letters only, unless it takes an ASCII character for the second byte of another.
 */

/** The name of a code page for TextDecoder, and the characters that texts of an installer in its languages mostly have. */
const CODE_PAGES = /** @type {const} */ ([
  { name: "windows-1252", family: "latin", usual: "äöüßéèêàâçîôûùëïñóíáúõãåøæœÄÖÜÉÀÅØÆ«»–„“”’¿¡ºª" },
  { name: "windows-1250", family: "latin", usual: "ąćęłńóśźżĄĆĘŁŃÓŚŹŻáčďéěíňřšťúůýžČŠŘŽőűöüäâăîșțş–„”’" },
  { name: "windows-1254", family: "latin", usual: "ğışçöüİŞĞÇÖÜâ–“”’" },
  { name: "windows-1257", family: "latin", usual: "āčēģīķļņšūžąęėįųõäöü–„“" },
  { name: "windows-1258", family: "latin", usual: "ăâđêôơưĂÂĐÊÔƠƯ" },
  { name: "windows-1251", family: "letters", usual: "абвгдежзийклмнопрстуфхцчшщъыьэюяёіїєўґ" },
  { name: "windows-1253", family: "letters", usual: "αβγδεζηθικλμνξοπρσςτυφχψωάέήίόύώ" },
  { name: "windows-1255", family: "letters", usual: "אבגדהוזחטיךכלםמןנסעףפץצקרשת" },
  { name: "windows-1256", family: "letters", usual: "ابتةثجحخدذرزسشصضطظعغفقكلمنهويىأإآئءؤ" },
  { name: "windows-874", family: "letters", usual: "กขคฆงจฉชซญฐณดตถทธนบปผฝพฟภมยรลวศษสหอะาำเแโใไิีึืุู่้๊็์ั" },
  { name: "shift_jis", family: "double", usual: "操作開始終了戻値製品名版情報記録詳細起動停止失敗成功確認実行権限管理者必要設定変更削除修復追加再試行中断問題発生場合指定見次前後時間日本語用人使用不足場所読込書出力入大小上下一二三年月分秒新旧更新対象機能登録解除取得処理的続行完全部表示選択" },
  { name: "gb18030", family: "double", usual: "操作开始结束返回值产品名称版本语言制造商安装成功或错误状态的是一在不了有和人这中大为上个国我以要他时来用们生到地于出就分对可会主发年动同工也能下过子说种面而方后多定行学法所民得经服务启动失败无法配置删除修复更改文件夹目录权限管理员请确认您否则此程序包问题联系支持详细记录编译类型调用进程信息警告日志信息停止用户已未找到打开写入读取系统数据库帐户名密码路径户" },
  { name: "big5", family: "double", usual: "動作開始結束傳回值產品名稱版本語言製造商安裝成功或錯誤狀態的是一在不了有和人這中大為上個國我以要他時來用們生到地於出就分對可會主發年同工也能下過子說種面而方後多定行學法所民得經服務啟動失敗無法設定移除修復變更檔案資料夾目錄權限系統管理員請確認您否則此程式套件問題聯絡支援詳細記錄組建類型呼叫處理程序資訊警告停止使用者已未找到開啟寫入讀取庫帳戶密碼路徑" },
  { name: "euc-kr", family: "double", usual: "작업시작끝종료반환값제품이름버전언어제조업체설치성공또는오류상태을를의는은에서가지고하여했습니다있없으로그리사용자권한관리서비스못수다음확인십시오파일폴더디렉터열기쓰읽계정암호경구성변경제거복로그자세한빌드유형호출프로세패키에문제가발생요정보스템기" },
]);
/** The characters of the engine's texts in double bytes that are usual in each of their languages. */
const PUNCTUATION = "。、：，（）「」・ー“”";
/** The bytes of a text that are looked at. */
const MOST_SAMPLE = 48 * 1024;
/** The bytes of a part, which begins with a character that is not in ASCII, and the most if it has only such characters. */
const AFTER = 60;
const LONGEST_PART = 600;

/**
 * Collects the parts of a text that are not in ASCII. Lines that are the same are taken once.
 */
export class Sample {
  constructor() {
    this.size = 0;
    /** @type {Set<string>} the parts, a character for each byte */
    this.parts = new Set();
  }

  /** @returns {boolean} more would not change what is found */
  get full() {
    return this.size >= MOST_SAMPLE;
  }

  /** @param {Uint8Array} bytes the next piece of the text */
  add(bytes) {
    for (let index = 0; index < bytes.length && !this.full; index += 1) {
      if (bytes[index] < 0x80) continue;
      let end = index;
      while (end < bytes.length && bytes[end] !== 10 && bytes[end] !== 13 && (end - index < AFTER || (bytes[end] >= 0x80 && end - index < LONGEST_PART))) end += 1;
      // Times and numbers do not make another line.
      const part = String.fromCharCode(...bytes.subarray(index, end)).replace(/[0-9]+/g, "0");
      if (!this.parts.has(part)) {
        this.parts.add(part);
        this.size += part.length;
      }
      index = end;
    }
  }

  /** @returns {Uint8Array} */
  get bytes() {
    return Uint8Array.from([...this.parts].join("\n"), (character) => character.charCodeAt(0));
  }
}

/**
 * How usual a text is for a code page: about 1 for each byte of a usual character, less than 0 for what is rare in it.
 * @param {string} text @param {{ family: "latin" | "letters" | "double", usual: string }} page
 */
function usualness(text, { family, usual }) {
  const known = new Set(usual);
  let score = 0;
  for (const [run] of text.matchAll(/[\u0080-\uffff]+/g)) {
    let before = "";
    for (const character of run) {
      const code = character.charCodeAt(0);
      const lower = character.toLowerCase();
      if (code === 0xfffd || (code >= 0x80 && code < 0xa0) || (code >= 0xe000 && code < 0xf900)) score -= 6;
      else if (family === "double") {
        // Japanese is full of kana, which the other code pages have too but do not need. Half of a width, they are rare.
        const kana = code >= 0x3041 && code <= 0x30fe && usual.includes("戻");
        const hangul = code >= 0xac00 && code <= 0xd7a3;
        score += known.has(character) || kana || PUNCTUATION.includes(character) ? 2 : hangul ? 0.5 : code >= 0xff61 && code <= 0xff9f ? -2 : -0.5;
      } else if (family === "letters") {
        // A capital letter is at the beginning of a word, or all are.
        const capital = character !== lower;
        score += !known.has(lower) ? -1 : !capital ? 1 : before === "" || before !== before.toLowerCase() ? 0.5 : -2;
      } else {
        // Languages with Latin letters have seldom more than two others in a row.
        score += run.length > 2 ? -1 : known.has(character) ? 1 : -0.5;
      }
      before = character;
    }
  }
  return score;
}

/** @param {string} text of UTF-8 @returns {number} */
function usualUtf8(text) {
  let score = 0;
  // Only UTF-8 has so many characters of several bytes and none that is wrong.
  for (const [character] of text.matchAll(/[\u0080-\u{10ffff}]/gu)) score += character === "\ufffd" ? -3 : 2;
  return score;
}

/**
 * The code page of a text.
 * @param {Sample} sample
 * @returns {string} its name for TextDecoder
 */
export function codePageOf(sample) {
  const { bytes } = sample;
  let best = "windows-1252";
  let most = usualUtf8(new TextDecoder("utf-8").decode(bytes));
  if (most > 0) best = "utf-8";
  else most = -Infinity;
  for (const page of CODE_PAGES) {
    let decoder;
    try {
      decoder = new TextDecoder(page.name);
    } catch {
      // Not every build of Node has all of them.
      continue;
    }
    // As a stream: Node 20 takes ISO 8859-1 for windows-1252 otherwise.
    const score = usualness(decoder.decode(bytes, { stream: true }), page);
    if (score > most && (page.family !== "double" || score > 0)) [best, most] = [page.name, score];
  }
  return best;
}
