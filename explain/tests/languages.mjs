/** What Windows Installer writes in its languages, and a log in each of them. NAME, RESULT, NUMBER and so on are put in. */

/**
 * @typedef {object} Language
 * @property {string[]} pages the code pages for TextDecoder in which a log of it can be
 * @property {string} head the beginning of a log, up to the program that called the engine
 * @property {string} announced an action is announced
 * @property {string} started
 * @property {string} ended
 * @property {string} error a message with a number
 * @property {string} text the text of that message
 * @property {string} product what is before the product's name in a message of it
 * @property {string} status the last message of a run
 * @property {string} stopped the end of a log
 * @property {string} folder the name of a folder; in double bytes, second bytes of it are \, [, ], {, } or |
 * @property {string} user the name of a user
 */

/** @type {Record<string, Language>} */
export const LANGUAGES = {
  Japanese: {
    pages: ["shift_jis"], head: "=== 詳細ログの記録開始: 2026/03/02  10:00:00  ビルドの種類: SHIP UNICODE 5.00.10011.00  呼び出しプロセス: PROGRAM ===",
    announced: "操作 TIME: NAME。", started: "操作開始 TIME: NAME。", ended: "操作終了 TIME: NAME。 戻り値 RESULT。",
    error: "エラー NUMBER。", text: "このサービス 'Vantor' (Vantor) を開始できませんでした。十分な特権を持っているかどうかを確認してください。", product: "製品: ",
    status: "Windows インストーラーにより製品がインストールされました。製品名: Vantor Server、製品バージョン: 1.0.0、製品の言語: 1041、製造元: Quillfern、インストールの成功またはエラーの状態: 1603。",
    stopped: "=== 詳細ログの記録終了: 2026/03/02  10:00:05 ===", folder: "表示ソ能ポ", user: "田中",
  },
  "Chinese (simplified)": {
    pages: ["gb18030"], head: "=== 详细记录开始: 2026/3/2  10:00:00  编译类型: SHIP UNICODE 5.00.10011.00  调用进程: PROGRAM ===",
    announced: "操作 TIME: NAME。", started: "操作开始 TIME: NAME。", ended: "操作结束 TIME: NAME。返回值 RESULT。",
    error: "错误 NUMBER。", text: "服务“Vantor”(Vantor)无法启动。请确认您有足够的权限启动系统服务。", product: "产品: ",
    status: "Windows Installer 安装了产品。产品名称: Vantor Server。产品版本: 1.0.0。产品语言: 2052。制造商: Quillfern。安装成功或错误状态: 1603。",
    stopped: "=== 详细记录停止: 2026/3/2  10:00:05 ===", folder: "乗乕乚亄亅亇", user: "李娜",
  },
  "Chinese (traditional)": {
    pages: ["big5"], head: "=== 詳細資訊記錄開始: 2026/3/2  10:00:00  組建類型: SHIP UNICODE 5.00.10011.00  呼叫處理程序: PROGRAM ===",
    announced: "動作 TIME: NAME。", started: "動作開始 TIME: NAME。", ended: "動作結束於 TIME: NAME。傳回值 RESULT。",
    error: "錯誤 NUMBER。", text: "無法啟動服務 'Vantor' (Vantor)。請確認您有足夠的權限啟動系統服務。", product: "產品: ",
    status: "Windows Installer 已安裝產品。產品名稱: Vantor Server。產品版本: 1.0.0。產品語言: 1028。製造商: Quillfern。安裝成功或錯誤狀態: 1603。",
    stopped: "=== 詳細資訊記錄停止: 2026/3/2  10:00:05 ===", folder: "功能許蓋", user: "陳大文",
  },
  Korean: {
    pages: ["euc-kr"], head: "=== 자세한 로그 시작: 2026-03-02  10:00:00  빌드 유형: SHIP UNICODE 5.00.10011.00  호출 프로세스: PROGRAM ===",
    announced: "작업 TIME: NAME.", started: "작업 시작 TIME: NAME.", ended: "작업 끝 TIME: NAME. 반환 값 RESULT.",
    error: "오류 NUMBER.", text: "'Vantor'(Vantor) 서비스를 시작하지 못했습니다. 시스템 서비스를 시작할 수 있는 권한이 있는지 확인하십시오.", product: "제품: ",
    status: "Windows Installer에서 제품을 설치했습니다. 제품 이름: Vantor Server. 제품 버전: 1.0.0. 제품 언어: 1042. 제조업체: Quillfern. 설치 성공 또는 오류 상태: 1603.",
    stopped: "=== 자세한 로그 끝: 2026-03-02  10:00:05 ===", folder: "문서 보관", user: "김민수",
  },
  German: {
    pages: ["windows-1252"], head: "=== Ausführliche Protokollierung gestartet: 02.03.2026  10:00:00  Buildtyp: SHIP UNICODE 5.00.10011.00  Aufrufender Prozess: PROGRAM ===",
    announced: "Aktion TIME: NAME.", started: "Aktion gestartet um TIME: NAME.", ended: "Aktion beendet um TIME: NAME. Rückgabewert RESULT.",
    error: "Fehler NUMBER.", text: 'Der Dienst "Vantor" (Vantor) konnte nicht gestartet werden. Überprüfen Sie, ob Sie ausreichende Berechtigungen haben.', product: "Produkt: ",
    status: "Das Produkt wurde durch Windows Installer installiert. Produktname: Vantor Server. Produktversion: 1.0.0. Produktsprache: 1031. Hersteller: Quillfern. Erfolg- bzw. Fehlerstatus der Installation: 1603.",
    stopped: "=== Ausführliche Protokollierung beendet: 02.03.2026  10:00:05 ===", folder: "Größen", user: "Jörg",
  },
  French: {
    pages: ["windows-1252"], head: "=== Début de l'écriture détaillée dans le journal : 02/03/2026  10:00:00  Type de génération : SHIP UNICODE 5.00.10011.00  Processus appelant : PROGRAM ===",
    announced: "Action TIME : NAME.", started: "Action démarrée à TIME : NAME.", ended: "Action terminée à TIME : NAME. Valeur renvoyée : RESULT.",
    error: "Erreur NUMBER.", text: "Le service Vantor (Vantor) n'a pas pu démarrer. Vérifiez que vous disposez des privilèges nécessaires.", product: "Produit : ",
    status: "Windows Installer a installé le produit. Nom du produit : Vantor Server. Version du produit : 1.0.0. Langue du produit : 1036. Fabricant : Quillfern. Réussite de l'installation ou état d'erreur : 1603.",
    stopped: "=== Fin de l'écriture détaillée dans le journal : 02/03/2026  10:00:05 ===", folder: "Données", user: "Zoé",
  },
  Russian: {
    pages: ["windows-1251"], head: "=== Начало подробного протоколирования: 02.03.2026  10:00:00  Тип сборки: SHIP UNICODE 5.00.10011.00  Вызывающий процесс: PROGRAM ===",
    announced: "Действие TIME: NAME.", started: "Начало действия TIME: NAME.", ended: "Конец действия TIME: NAME. Возвращаемое значение RESULT.",
    error: "Ошибка NUMBER.", text: "Не удалось запустить службу «Vantor» (Vantor). Убедитесь, что у вас достаточно прав для запуска системных служб.", product: "Продукт: ",
    status: "Установщик Windows выполнил установку продукта. Продукт: Vantor Server. Версия: 1.0.0. Язык: 1049. Изготовитель: Quillfern. Установка завершена с состоянием: 1603.",
    stopped: "=== Конец подробного протоколирования: 02.03.2026  10:00:05 ===", folder: "Документы", user: "Иван",
  },
  Polish: {
    pages: ["windows-1250"], head: "=== Rozpoczęcie pełnego rejestrowania: 2026-03-02  10:00:00  Typ kompilacji: SHIP UNICODE 5.00.10011.00  Proces wywołujący: PROGRAM ===",
    announced: "Akcja TIME: NAME.", started: "Rozpoczęcie akcji TIME: NAME.", ended: "Zakończenie akcji TIME: NAME. Zwrócona wartość RESULT.",
    error: "Błąd NUMBER.", text: "Nie można uruchomić usługi „Vantor” (Vantor). Sprawdź, czy masz uprawnienia wystarczające do uruchamiania usług.", product: "Produkt: ",
    status: "Instalator systemu Windows zainstalował produkt. Nazwa produktu: Vantor Server. Wersja produktu: 1.0.0. Język produktu: 1045. Producent: Quillfern. Stan powodzenia lub błędu instalacji: 1603.",
    stopped: "=== Zakończenie pełnego rejestrowania: 2026-03-02  10:00:05 ===", folder: "Źródła", user: "Łukasz",
  },
  Greek: {
    pages: ["windows-1253"], head: "=== Έναρξη αναλυτικής καταγραφής: 2/3/2026  10:00:00  Τύπος δομής: SHIP UNICODE 5.00.10011.00  Καλούσα διεργασία: PROGRAM ===",
    announced: "Ενέργεια TIME: NAME.", started: "Έναρξη ενέργειας TIME: NAME.", ended: "Τέλος ενέργειας TIME: NAME. Επιστρεφόμενη τιμή RESULT.",
    error: "Σφάλμα NUMBER.", text: "Δεν ήταν δυνατή η εκκίνηση της υπηρεσίας 'Vantor' (Vantor). Βεβαιωθείτε ότι έχετε επαρκή δικαιώματα.", product: "Προϊόν: ",
    status: "Το Windows Installer εγκατέστησε το προϊόν. Όνομα προϊόντος: Vantor Server. Έκδοση προϊόντος: 1.0.0. Γλώσσα προϊόντος: 1032. Κατασκευαστής: Quillfern. Κατάσταση επιτυχίας ή σφάλματος: 1603.",
    stopped: "=== Τέλος αναλυτικής καταγραφής: 2/3/2026  10:00:05 ===", folder: "Έγγραφα", user: "Ελένη",
  },
};

/**
 * A log of an installation whose service does not start, in a language. Windows Installer's own words are never translated.
 * @param {Language} words
 * @param {(text: string) => string} [change] changes each line that is translated
 * @returns {string}
 */
export function installation(words, change = (text) => text) {
  const program = "C:\\Windows\\system32\\msiexec.exe";
  let second = 0;
  /** @param {string} text @param {string} name @param {number} [result] */
  const line = (text, name, result = 0) => change(text.replace("TIME", `10:00:0${second}`).replace("NAME", name).replace("RESULT", String(result)));
  const server = () => `MSI (s) (2C:1C) [10:00:0${second}:000]: `;
  const lines = [change(words.head.replace("PROGRAM", program)), "MSI (c) (11:22) [10:00:00:000]: Resetting cached policy values",
    `${server()}Command Line: DIR_SERVER=C:\\${words.folder}\\[x]{y}| CURRENTDIRECTORY=C:\\Users\\${words.user} CLIENTUILEVEL=3`];
  /** @param {string} name @param {string[]} [inside] @param {number} [result] */
  const action = (name, inside = [], result = 1) => {
    lines.push(`${server()}Doing action: ${name}`, line(words.announced, name), line(words.started, name), ...inside);
    second += name === "CustomAction12" ? 2 : 0;
    lines.push(line(words.ended, name, result));
  };
  lines.push(`${server()}Doing action: INSTALL`, line(words.announced, "INSTALL"), line(words.started, "INSTALL"));
  action("CustomAction12", [`${server()}PROPERTY CHANGE: Adding DIR_PROGRAMS64 property. Its value is 'C:\\${words.folder}\\'.`]);
  const message = change(words.error.replace("NUMBER", "1920")) + words.text;
  action("StartServices", [message, `${server()}${change(words.product)}Vantor Server -- ${message}`, ""], 3);
  lines.push(line(words.ended, "INSTALL", 3), "Property(S): ProductName = Vantor Server", "Property(S): ProductVersion = 1.0.0", `Property(S): DIR_SERVER = C:\\${words.folder}\\`,
    `Property(S): LogonUser = ${words.user}`, `${server()}Note: 1: 1708 `, `${server()}${change(words.status)}`, "", `${server()}MainEngineThread is returning 1603`, change(words.stopped));
  return `${lines.join("\r\n")}\r\n`;
}

/** @type {Map<string, Map<string, number[]>>} */
const encoders = new Map();

/**
 * Puts a text into a code page.
 * @param {string} text @param {string} page
 * @returns {Uint8Array}
 */
export function encoded(text, page) {
  let codes = encoders.get(page);
  if (!codes) {
    codes = new Map();
    const decoder = new TextDecoder(page, { fatal: true });
    for (let first = 0; first < 256; first += 1) {
      for (let second = -1; second < (first < 128 ? 0 : 256); second += 1) {
        const bytes = second < 0 ? [first] : [first, second];
        try {
          const character = decoder.decode(new Uint8Array(bytes));
          if (character.length === 1 && !codes.has(character)) codes.set(character, bytes);
        } catch {
          // Not a character.
        }
      }
    }
    encoders.set(page, codes);
  }
  return Uint8Array.from([...text].flatMap((character) => {
    const bytes = /** @type {Map<string, number[]>} */ (codes).get(character);
    if (!bytes) throw new Error(`${page} has no ${character}`);
    return bytes;
  }));
}
